#include "ScratchWorker.h"

#include "FileProbe.h"
#include "Logger.h"

#include <QTest>

namespace {

const QByteArray kPrefix = "The package barcode info is :";
QTemporaryDir* logDir = nullptr;
qint64 logOffset = 0;

} // namespace

bool ScratchWorker::push(const QByteArray& bytes)
{
    thread.pushData(bytes.constData(), bytes.size());
    return QTest::qWaitFor([this] { return thread.pendingBytes() == 0; }, 15000);
}

QByteArrayList ScratchWorker::frames(const QString& dir) const
{
    QByteArrayList frames;
    for (const QByteArray& content : FileProbe::textFileContents(dir.isEmpty() ? m_dir.path() : dir))
        frames.append(content.startsWith(kPrefix) ? content.mid(kPrefix.size()) : content);
    return frames;
}

bool ScratchWorker::openLog()
{
    logDir = new QTemporaryDir;
    return Logger::open(logDir->filePath("log.txt").toStdString());
}

QStringList ScratchWorker::logSince()
{
    const QByteArray all = FileProbe::readAll(logDir->filePath("log.txt"));
    const QByteArray added = all.mid(logOffset);
    logOffset = all.size();
    QStringList messages;
    for (const QByteArray& line : added.split('\n')) {
        const int separator = line.indexOf(" - ");
        if (separator >= 0)
            messages << QString::fromUtf8(line.mid(separator + 3));
    }
    return messages;
}
