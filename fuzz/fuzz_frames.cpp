// Frame extraction over arbitrary streams: any start and end text, any cut into chunks, silences
// in between. Checks what must hold whatever the camera sends.
#include "DataThread.h"
#include "DataThreadStepper.h"
#include "FuzzInput.h"
#include "Logger.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstdio>
#include <cstdlib>

namespace {

const QByteArray kPrefix = "The package barcode info is :";

QTemporaryDir* g_frameDir = nullptr;

void fail(const char* what, const QByteArray& detail)
{
    std::fprintf(stderr, "fuzz_frames: %s: %s\n", what, detail.toPercentEncoding(" ").constData());
    std::abort();
}

// Every file holds the prefix and then at most one line; the files go again for the next input.
int checkAndRemoveFrameFiles()
{
    QDir dir(g_frameDir->path());
    const QStringList names = dir.entryList(QDir::Files);
    for (const QString& name : names) {
        QFile file(dir.filePath(name));
        if (!file.open(QIODevice::ReadOnly)) {
            fail("unreadable frame file", name.toUtf8());
        }
        const QByteArray content = file.readAll();
        if (!content.startsWith(kPrefix)) {
            fail("frame file without its prefix", content);
        }
        if (content.contains('\r') || content.contains('\n')) {
            fail("frame file with a line break", content);
        }
        file.remove();
    }
    return names.size();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    new QCoreApplication(*argc, *argv);
    Logger::setLevel(LOG_ERROR);
    g_frameDir = new QTemporaryDir();
    return 0;
}

// Input: one byte with the lengths of start and end (1-4 bytes each), their bytes, then steps.
// A step byte of 0xF0 or more is a silence; any other gives a chunk of (byte & 0x7F) + 1 bytes.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzInput input(data, size);
    const uint8_t lengths = input.takeByte();
    const QString start = QString::fromUtf8(input.takeBytes(1 + (lengths & 3)));
    const QString end = QString::fromUtf8(input.takeBytes(1 + ((lengths >> 2) & 3)));
    if (start.isEmpty() || end.isEmpty()) {
        return 0;
    }

    DataThread thread;
    thread.setStartEndChar(start, end);
    thread.setFileDir(g_frameDir->path());
    DataThreadStepper stepper(thread, nullptr);

    int passes = 0;
    while (!input.atEnd()) {
        const uint8_t step = input.takeByte();
        if (step >= 0xF0) {
            stepper.silence();
            if (!stepper.fileCarry().isEmpty() && stepper.keyCarry().isEmpty()) {
                fail("silence kept the file carry", stepper.fileCarry().toUtf8());
            }
        } else {
            const QByteArray chunk = input.takeBytes((step & 0x7F) + 1);
            stepper.feedChunk(chunk.constData(), chunk.size());
            if (stepper.fileCarry().size() > DataThread::kFileCarryLimit) {
                fail("file carry above its limit", QByteArray::number(stepper.fileCarry().size()));
            }
        }
        ++passes;
    }
    // At most one frame a pass; names that share a millisecond overwrite each other, never add.
    if (checkAndRemoveFrameFiles() > passes) {
        fail("more frame files than passes", QByteArray::number(passes));
    }
    return 0;
}
