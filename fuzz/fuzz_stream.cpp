// The framers and the key plan over arbitrary streams: any start and end text, any cut into reads,
// silences in between. Checks what must hold whatever the camera sends.
#include "ChunkFramer.h"
#include "DataThread.h"
#include "EveryFrameFramer.h"
#include "KeyPlan.h"

#include <QCoreApplication>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

void fail(const char* what, const QString& detail)
{
    std::fprintf(stderr, "fuzz_stream: %s: %s\n", what, detail.toUtf8().toPercentEncoding(" ").constData());
    std::abort();
}

// A chord presses one to five named keys. Returns how many characters and CR taps there are.
int checkActions(const KeyPlan::Typing& typing)
{
    int typed = 0;
    for (const KeyPlan::Action& action : typing.actions) {
        typed += action.kind != KeyPlan::Action::Kind::Chord;
        const bool named = std::all_of(
            action.keys.cbegin(), action.keys.cend(), [](int key) { return KeyPlan::keyNames.values().contains(key); });
        if (!named || action.keys.size() > KeyPlan::kMostChordKeys
            || (action.kind == KeyPlan::Action::Kind::Chord && action.keys.isEmpty())) {
            fail("a chord of a wrong size or with a key that has no name", typing.logged);
        }
    }
    return typed;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    new QCoreApplication(*argc, *argv);
    return 0;
}

// Input: one byte with the lengths of start and end (1-4 bytes each) and the key encoding (0x10 for
// UTF-8), their bytes, then steps. A step byte of 0xF0 or more is a silence; any other gives a read
// of (byte & 0x7F) + 1 bytes.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));
    const uint8_t head = size > 0 ? data[0] : 0;
    int at = 1;
    // Past the end every take comes back short or empty.
    const auto take = [&input, &at](int count) {
        at += count;
        return input.mid(at - count, count);
    };
    const QString start = QString::fromUtf8(take(1 + (head & 3)));
    const QString end = QString::fromUtf8(take(1 + ((head >> 2) & 3)));
    if (start.isEmpty() || end.isEmpty())
        return 0;
    ChunkFramer chunked(start, end);
    EveryFrameFramer kept(start, end);
    KeyPlan keys((head & 0x10) ? KeyPlan::Encoding::Utf8 : KeyPlan::Encoding::Latin1);
    QStringList keptFrames;
    QByteArray whole;
    int typed = 0;
    while (at < input.size()) {
        const uint8_t step = data[at++];
        if (step >= 0xF0) {
            const std::optional<Framer::Result> ended = chunked.silence();
            if (ended && ended->frames.size() > 1)
                fail("a silence wrote more than one frame", ended->frames.join('|'));
            if (chunked.carriedLength() != 0 || kept.silence())
                fail("a silence left the carry or ended a kept frame", start + "|" + end);
            typed += checkActions(keys.flush());
            continue;
        }
        const QByteArray read = take(qMin((step & 0x7F) + 1, DataThread::kChunkSize));
        whole += read;
        const Framer::Result cut = chunked.feed(read);
        if (cut.frames.size() > 1 || chunked.carriedLength() > ChunkFramer::kCarryLimit)
            fail("more than one frame a chunk, or a carry above its limit", cut.frames.join('|'));
        for (const QString& frame : kept.feed(read).frames) {
            if (frame.isEmpty() || frame.contains(end))
                fail("a kept frame empty or holding the end text", frame);
            keptFrames << frame;
        }
        typed += checkActions(keys.feed(read));
        if (keys.held().size() >= KeyPlan::kHeldChordLength)
            fail("a held tail above its limit", keys.held());
    }
    typed += checkActions(keys.flush());
    // However valid UTF-8 falls into reads, every frame kept is the same. A broken sequence may be
    // replaced by a different number of characters when a read cuts it.
    const bool valid = QString::fromUtf8(whole.constData(), whole.size()).toUtf8() == whole;
    if (valid && EveryFrameFramer(start, end).feed(whole).frames != keptFrames)
        fail("kept frames depend on the reads", keptFrames.join('|'));
    // A carried tail is typed again from its text, where a broken UTF-8 byte becomes a three-byte
    // replacement; beyond that, nothing may be typed twice or go on by itself.
    if (typed > 3 * whole.size())
        fail("more characters typed than received", QString::number(whole.size()));
    return 0;
}
