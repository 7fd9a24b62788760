// The key stream over arbitrary bytes: chords, broken chords, CR, zero bytes, cuts anywhere and
// silences, typed into a recording injector. Checks the shape of every event that goes out.
#include "DataThread.h"
#include "DataThreadStepper.h"
#include "FuzzInput.h"
#include "Logger.h"
#include "RecordingKeyInjector.h"

#include <QCoreApplication>
#include <cstdio>
#include <cstdlib>

namespace {

void fail(const char* what, const QString& detail)
{
    std::fprintf(stderr, "fuzz_keys: %s: %s\n", what, detail.toUtf8().toPercentEncoding(" ").constData());
    std::abort();
}

// A chord is all its keys down, then the same keys up in the same order, at most five of them.
void checkChord(const QString& event)
{
    const QStringList parts = event.mid(5).split(", ");
    const int half = parts.size() / 2;
    if (parts.size() % 2 != 0 || half < 1 || half > DataThread::kMostChordKeys) {
        fail("chord of a wrong size", event);
    }
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
        } else if (event.startsWith("char ")) {
            if (!event.endsWith(" down") || i + 1 >= events.size()
                || events[i + 1] != event.left(event.size() - 5) + " up") {
                fail("character without its release", event);
            }
            const int code = event.section(' ', 1, 1).toInt();
            if (code < 0 || code > 255) {
                fail("character code out of range", event);
            }
            ++typed;
            ++i;
        } else if (event == "tap 13") {
            ++typed;
        } else {
            fail("unexpected event", event);
        }
    }
    return typed;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    new QCoreApplication(*argc, *argv);
    Logger::setLevel(LOG_ERROR);
    return 0;
}

// Input: steps as for frames; a step byte of 0xF0 or more is a silence, any other gives a chunk
// of (byte & 0x7F) + 1 bytes. Start and end are fixed: framing has a fuzzer of its own.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    RecordingKeyInjector keys;
    DataThread thread;
    thread.setStartEndChar("[", "]");
    thread.setFileDir(QStringLiteral("/nonexistent/tapwright-fuzz"));
    DataThreadStepper stepper(thread, &keys);

    FuzzInput input(data, size);
    int fed = 0;
    while (!input.atEnd()) {
        const uint8_t step = input.takeByte();
        if (step >= 0xF0) {
            stepper.silence();
        } else {
            const QByteArray chunk = input.takeBytes((step & 0x7F) + 1);
            stepper.feedChunk(chunk.constData(), chunk.size());
            fed += chunk.size();
        }
        if (stepper.keyCarry().size() > DataThread::kHeldChordLength) {
            fail("key carry above its limit", stepper.keyCarry());
        }
    }
    stepper.silence();

    // A carried tail is typed again from its text, where a broken UTF-8 byte becomes a three-byte
    // replacement; beyond that, nothing may be typed twice or go on by itself.
    const int typed = checkEvents(keys.keyEvents());
    if (typed > 3 * fed) {
        fail("more characters typed than received", QString::number(typed));
    }
    return 0;
}
