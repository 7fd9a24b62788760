// The worker's passes over arbitrary streams: any start and end text, any cut into chunks, silences
// in between, typing on or off. Checks what must hold whatever the camera sends.
#include "DataThread.h"
#include "DataThreadStepper.h"
#include "Logger.h"
#include "RecordingKeyInjector.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <cstdio>
#include <cstdlib>

namespace {

const QByteArray kPrefix = "The package barcode info is :";
QTemporaryDir* g_frameDir = nullptr;

void fail(const char* what, const QString& detail)
{
    std::fprintf(stderr, "fuzz_stream: %s: %s\n", what, detail.toUtf8().toPercentEncoding(" ").constData());
    std::abort();
}

// Every file holds the prefix and then at most one line; the files go again for the next input.
int checkAndRemoveFrameFiles()
{
    QDir dir(g_frameDir->path());
    const QStringList names = dir.entryList(QDir::Files);
    for (const QString& name : names) {
        QFile file(dir.filePath(name));
        const QByteArray content = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        if (!content.startsWith(kPrefix) || content.contains('\r') || content.contains('\n'))
            fail("frame file without its prefix or with a line break", content);
        file.remove();
    }
    return names.size();
}

// A chord is all its keys down, then the same keys up in the same order, at most five of them.
void checkChord(const QString& event)
{
    const QStringList parts = event.mid(5).split(", ");
    const int half = parts.size() / 2;
    if (parts.size() % 2 != 0 || half < 1 || half > DataThread::kMostChordKeys)
        fail("chord of a wrong size", event);
    for (int k = 0; k < half; ++k) {
        const QString key = parts[k].section(' ', 0, 0);
        if (!parts[k].endsWith(" down") || parts[half + k] != key + " up"
            || !DataThread::vkNameTable.values().contains(key.toInt())) {
            fail("chord out of order", event);
        }
    }
}

// Returns the number of characters typed; a character goes down and comes straight up.
int checkEvents(const QStringList& events)
{
    int typed = 0;
    for (int i = 0; i < events.size(); ++i) {
        const QString& event = events[i];
        if (event.startsWith("keys ")) {
            checkChord(event);
        } else if (event == "tap 13") {
            ++typed;
        } else if (!event.startsWith("char ") || !event.endsWith(" down") || i + 1 >= events.size()
                   || events[i + 1] != event.chopped(5) + " up" || event.section(' ', 1, 1).toUInt() > 255) {
            fail("unexpected event, or a character without its release", event);
        } else {
            ++typed;
            ++i;
        }
    }
    return typed;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    new QCoreApplication(*argc, *argv);
    Logger::setLevel(LOG_ERROR);
    g_frameDir = new QTemporaryDir();
    return 0;
}

// Input: one byte with the lengths of start and end (1-4 bytes each) and typing (0x10), their
// bytes, then steps. A step byte of 0xF0 or more is a silence; any other gives a chunk of
// (byte & 0x7F) + 1 bytes.
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
    RecordingKeyInjector keys;
    DataThread thread;
    thread.setStartEndChar(start, end);
    thread.setFileDir(g_frameDir->path());
    DataThreadStepper stepper(thread, (head & 0x10) ? &keys : nullptr);

    int passes = 0;
    int fed = 0;
    for (; at < input.size(); ++passes) {
        const uint8_t step = data[at++];
        if (step >= 0xF0) {
            // The held keys go out first; the carried frame waits for the next silence.
            const bool keysHeld = !stepper.keyCarry().isEmpty();
            stepper.silence();
            if (!stepper.fileCarry().isEmpty() && !keysHeld)
                fail("silence kept the file carry", stepper.fileCarry());
            continue;
        }
        const QByteArray chunk = take((step & 0x7F) + 1);
        stepper.feedChunk(chunk.constData(), chunk.size());
        fed += chunk.size();
        if (stepper.fileCarry().size() > DataThread::kFileCarryLimit
            || stepper.keyCarry().size() > DataThread::kHeldChordLength) {
            fail("a carry above its limit", stepper.fileCarry().left(80) + "|" + stepper.keyCarry());
        }
    }
    stepper.silence();
    ++passes;
    // At most one frame a pass; names that share a millisecond overwrite each other, never add.
    if (checkAndRemoveFrameFiles() > passes)
        fail("more frame files than passes", QString::number(passes));
    // A carried tail is typed again from its text, where a broken UTF-8 byte becomes a three-byte
    // replacement; beyond that, nothing may be typed twice or go on by itself.
    if (checkEvents(keys.keyEvents()) > 3 * fed)
        fail("more characters typed than received", QString::number(fed));
    return 0;
}
