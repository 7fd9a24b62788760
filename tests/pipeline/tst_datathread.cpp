#include "DataThread.h"
#include "FileProbe.h"
#include "Logger.h"
#include "PipelineDriver.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>
#include <atomic>
#include <thread>

using PipelineDriver::frameFileContents;
using PipelineDriver::logLinesFrom;
using PipelineDriver::pushAndDrain;
using PipelineDriver::waitUntil;

namespace {

constexpr int kTimeoutMs = 15000;

// A frame that fills one chunk exactly: start, tag, padding, end.
QByteArray chunkFrame(const QByteArray& tag)
{
    QByteArray frame = "#" + tag;
    frame.append(DataThread::kChunkSize - 1 - frame.size(), '.');
    frame.append('$');
    return frame;
}

QByteArray framePayload(const QByteArray& chunk)
{
    return chunk.mid(1, chunk.size() - 2);
}

QByteArray newestFile(const QString& dir)
{
    const QList<QByteArray> contents = FileProbe::textFileContents(dir);
    return contents.isEmpty() ? QByteArray() : contents.last();
}

QByteArray tagOf(const QByteArray& fileContent)
{
    const QByteArray payload = fileContent.mid(QByteArray("The package barcode info is :").size());
    return payload.left(payload.indexOf('.'));
}

} // namespace

class tst_datathread final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void pushKeepsToTheLimit_data();
    void pushKeepsToTheLimit();
    void oversizedPushKeepsItsFirstBytes();
    void stopOnIdleThreadKeepsTheBuffer();
    void stopClearsTheBuffer();
    void restartBeginsAfresh();
    void concurrentPushesWithinTheLimitAllArrive();
    void concurrentPushesBeyondTheLimitDropWholeChunks();
    void vanishedDirectoryIsLoggedPerFrame();
    void existingFileIsOverwritten();
    void unfinishedFrameIsBounded();

private:
    qint64 logSize() const { return QFileInfo(m_logPath).size(); }

    QTemporaryDir m_logDir;
    QString m_logPath;
};

void tst_datathread::initTestCase()
{
    QVERIFY(m_logDir.isValid());
    m_logPath = m_logDir.filePath("pipeline.txt");
    QVERIFY(Logger::open(m_logPath.toStdString()));
}

void tst_datathread::pushKeepsToTheLimit_data()
{
    QTest::addColumn<QList<int>>("pushes");
    QTest::addColumn<int>("kept");

    QTest::newRow("small push") << QList<int> { 100 } << 100;
    QTest::newRow("exactly the limit") << QList<int> { 4096 } << 4096;
    QTest::newRow("one push above the limit") << QList<int> { 5000 } << 4096;
    QTest::newRow("second push cut at the limit") << QList<int> { 3000, 3000 } << 4096;
    QTest::newRow("push into a full buffer") << QList<int> { 4096, 10 } << 4096;
    QTest::newRow("empty and negative lengths") << QList<int> { 0, -5, 7 } << 7;
}

void tst_datathread::pushKeepsToTheLimit()
{
    QFETCH(QList<int>, pushes);
    QFETCH(int, kept);

    DataThread thread;
    const QByteArray bytes(8192, 'b');
    for (int len : pushes) {
        thread.pushData(bytes.constData(), len);
    }
    QCOMPARE(thread.pendingBytes(), kept);
}

void tst_datathread::oversizedPushKeepsItsFirstBytes()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    DataThread thread;
    thread.setStartEndChar("#", "$");
    thread.setFileDir(dir.path());
    QVERIFY(thread.startThread());

    QByteArray stream;
    QList<QByteArray> keptFrames;
    for (int i = 0; stream.size() < 5000; ++i) {
        const QByteArray frame = chunkFrame(QByteArray::number(i));
        stream.append(frame);
        if (stream.size() <= DataThread::kBufferLimit) {
            keptFrames.append(framePayload(frame));
        }
    }
    stream.truncate(5000);
    QCOMPARE(keptFrames.size(), DataThread::kBufferLimit / DataThread::kChunkSize);

    thread.pushData(stream.constData(), stream.size());
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFiles(dir.path()).size(), keptFrames.size(), kTimeoutMs);
    // Anything kept beyond the limit would be written before this.
    QVERIFY(pushAndDrain(thread, "#end$"));
    keptFrames.append("end");
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(dir.path()), frameFileContents(keptFrames), kTimeoutMs);
    QVERIFY(thread.stopThread());
}

void tst_datathread::stopOnIdleThreadKeepsTheBuffer()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    DataThread thread;
    thread.setStartEndChar("#", "$");
    thread.setFileDir(dir.path());

    thread.pushData("#A$", 3);
    QVERIFY(thread.stopThread());
    QCOMPARE(thread.pendingBytes(), 3);

    QVERIFY(thread.startThread());
    QVERIFY(thread.stopThread());
    thread.pushData("#B$", 3);
    QVERIFY(thread.stopThread());
    QCOMPARE(thread.pendingBytes(), 3);
}

void tst_datathread::stopClearsTheBuffer()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    DataThread thread;
    thread.setStartEndChar("#", "$");
    thread.setFileDir(dir.path());
    QVERIFY(thread.startThread());

    const QByteArray noise(DataThread::kBufferLimit, 'n');
    thread.pushData(noise.constData(), noise.size());
    QVERIFY(thread.stopThread());
    QVERIFY(!thread.isRunning());
    QCOMPARE(thread.pendingBytes(), 0);
}

void tst_datathread::restartBeginsAfresh()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    DataThread thread;
    thread.setStartEndChar("#", "$");
    thread.setFileDir(dir.path());

    QVERIFY(thread.startThread());
    QVERIFY(pushAndDrain(thread, "#carried"));
    QVERIFY(thread.stopThread());

    // Bytes pushed while stopped are discarded by the next start.
    thread.pushData("#stale$", 7);
    QVERIFY(thread.startThread());
    QCOMPARE(thread.pendingBytes(), 0);

    // Without the carried start, this end closes nothing.
    QVERIFY(pushAndDrain(thread, "tail$"));
    QVERIFY(pushAndDrain(thread, "#fresh$"));
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(dir.path()), frameFileContents({ "fresh" }), kTimeoutMs);
    QVERIFY(thread.stopThread());

    QVERIFY(thread.startThread());
    QVERIFY(pushAndDrain(thread, "#again$"));
    QTRY_COMPARE_WITH_TIMEOUT(
        FileProbe::textFileContents(dir.path()), frameFileContents({ "fresh", "again" }), kTimeoutMs);
    QVERIFY(thread.stopThread());
}

void tst_datathread::concurrentPushesWithinTheLimitAllArrive()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    DataThread thread;
    thread.setStartEndChar("#", "$");
    thread.setFileDir(dir.path());
    QVERIFY(thread.startThread());

    constexpr int kFramesPerPusher = 60;
    // Two pushers that each wait for room for both of them never overrun the limit.
    const int roomForBoth = DataThread::kBufferLimit - 2 * DataThread::kChunkSize;
    std::atomic<bool> pacedInTime { true };
    auto pusher = [&](char name) {
        for (int i = 0; i < kFramesPerPusher; ++i) {
            if (!waitUntil([&] { return thread.pendingBytes() <= roomForBoth; })) {
                pacedInTime = false;
                return;
            }
            const QByteArray frame = chunkFrame(name + QByteArray::number(1000 + i));
            thread.pushData(frame.constData(), frame.size());
        }
    };
    std::thread first(pusher, 'p');
    std::thread second(pusher, 'q');
    first.join();
    second.join();
    QVERIFY(pacedInTime);

    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFiles(dir.path()).size(), 2 * kFramesPerPusher, kTimeoutMs * 2);
    QByteArrayList tagsOfP;
    QByteArrayList tagsOfQ;
    for (const QByteArray& content : FileProbe::textFileContents(dir.path())) {
        const QByteArray tag = tagOf(content);
        QCOMPARE(frameFileContents({ framePayload(chunkFrame(tag)) }).first(), content);
        (tag.startsWith('p') ? tagsOfP : tagsOfQ).append(tag);
    }
    for (int i = 0; i < kFramesPerPusher; ++i) {
        QCOMPARE(tagsOfP.value(i), "p" + QByteArray::number(1000 + i));
        QCOMPARE(tagsOfQ.value(i), "q" + QByteArray::number(1000 + i));
    }
    QVERIFY(thread.stopThread());
}

void tst_datathread::concurrentPushesBeyondTheLimitDropWholeChunks()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    DataThread thread;
    thread.setStartEndChar("#", "$");
    thread.setFileDir(dir.path());
    QVERIFY(thread.startThread());

    constexpr int kFramesPerPusher = 200;
    auto pusher = [&](char name) {
        for (int i = 0; i < kFramesPerPusher; ++i) {
            const QByteArray frame = chunkFrame(name + QByteArray::number(1000 + i));
            thread.pushData(frame.constData(), frame.size());
        }
    };
    std::thread first(pusher, 'p');
    std::thread second(pusher, 'q');
    first.join();
    second.join();
    QVERIFY(waitUntil([&] { return thread.pendingBytes() == 0; }, kTimeoutMs * 2));
    QVERIFY(pushAndDrain(thread, "#last$"));
    QTRY_COMPARE_WITH_TIMEOUT(newestFile(dir.path()), frameFileContents({ "last" }).first(), kTimeoutMs);

    QList<QByteArray> contents = FileProbe::textFileContents(dir.path());
    contents.removeLast();
    // Chunks and pushes are both 128 bytes, so a push is kept whole or dropped whole.
    int lastP = 0;
    int lastQ = 0;
    for (const QByteArray& content : contents) {
        const QByteArray tag = tagOf(content);
        QCOMPARE(content, frameFileContents({ framePayload(chunkFrame(tag)) }).first());
        int& last = tag.startsWith('p') ? lastP : lastQ;
        const int sequence = tag.mid(1).toInt();
        QVERIFY2(sequence > last, "frames of one pusher arrive in order and once");
        last = sequence;
    }
    const int kept = contents.size();
    QVERIFY2(kept >= DataThread::kBufferLimit / DataThread::kChunkSize, qPrintable(QString::number(kept)));
    QVERIFY(kept <= 2 * kFramesPerPusher);
    qInfo("kept %d of %d pushed frames, dropped %d", kept, 2 * kFramesPerPusher, 2 * kFramesPerPusher - kept);
    QVERIFY(thread.stopThread());
}

void tst_datathread::vanishedDirectoryIsLoggedPerFrame()
{
    QTemporaryDir parent;
    QVERIFY(parent.isValid());
    const QString dir = parent.filePath("frames");
    QVERIFY(QDir().mkpath(dir));
    DataThread thread;
    thread.setStartEndChar("#", "$");
    thread.setFileDir(dir);
    QVERIFY(thread.startThread());

    QVERIFY(pushAndDrain(thread, "#before$"));
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFiles(dir).size(), 1, kTimeoutMs);
    QVERIFY(QDir(dir).removeRecursively());

    const qint64 logMark = logSize();
    QVERIFY(pushAndDrain(thread, "#lost1$"));
    QVERIFY(pushAndDrain(thread, "#lost2$"));
    QTRY_COMPARE_WITH_TIMEOUT(logLinesFrom(m_logPath, logMark).size(), 2, kTimeoutMs);
    const QRegularExpression failure(
        QStringLiteral(
            R"(^\[\d\d:\d\d:\d\d \d\d/\d\d/\d\d\] INFO  - \[INFO\] Could not open file %1/\d{8}_\d{6}_\d{3}\.txt for writing\.$)")
            .arg(QRegularExpression::escape(dir)));
    for (const QString& line : logLinesFrom(m_logPath, logMark)) {
        QVERIFY2(failure.match(line).hasMatch(), qPrintable(line));
    }
    QVERIFY(!QFileInfo::exists(dir));

    QVERIFY(QDir().mkpath(dir));
    QVERIFY(pushAndDrain(thread, "#after$"));
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(dir), frameFileContents({ "after" }), kTimeoutMs);
    QVERIFY(thread.isRunning());
    QVERIFY(thread.stopThread());
    QCOMPARE(logLinesFrom(m_logPath, logMark).size(), 2);
}

void tst_datathread::existingFileIsOverwritten()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    // Occupy every name from now until a few seconds ahead, so the frame has to land on an
    // existing file.
    const QByteArray stale = "stale content that is longer than the frame file it gives way to";
    QDateTime next = QDateTime::currentDateTime();
    int occupied = 0;
    while (next < QDateTime::currentDateTime().addMSecs(3000)) {
        QFile file(dir.filePath(next.toString("yyyyMMdd_hhmmss_zzz") + ".txt"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(stale);
        next = next.addMSecs(1);
        QVERIFY2(++occupied < 100000, "files are created slower than names go by");
    }

    DataThread thread;
    thread.setStartEndChar("#", "$");
    thread.setFileDir(dir.path());
    QVERIFY(thread.startThread());
    QVERIFY(pushAndDrain(thread, "#A$"));
    QTRY_VERIFY_WITH_TIMEOUT(FileProbe::textFileContents(dir.path()).contains(frameFileContents({ "A" }).first()),
                             kTimeoutMs);
    QVERIFY(thread.stopThread());

    const QList<QByteArray> contents = FileProbe::textFileContents(dir.path());
    QCOMPARE(contents.size(), occupied);
    QCOMPARE(contents.count(stale), occupied - 1);
}

void tst_datathread::unfinishedFrameIsBounded()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    DataThread thread;
    thread.setStartEndChar("#", "$");
    thread.setFileDir(dir.path());
    QVERIFY(thread.startThread());
    const qint64 logMark = logSize();

    // A start followed by more text than the carry may hold, fed fast enough that no silence
    // flush intervenes.
    QByteArray stream = "#" + QByteArray(DataThread::kFileCarryLimit + 4096, 'x') + "$";
    constexpr int kPush = 1024;
    for (int offset = 0; offset < stream.size(); offset += kPush) {
        QVERIFY(waitUntil([&] { return thread.pendingBytes() <= DataThread::kBufferLimit - kPush; }));
        thread.pushData(stream.constData() + offset, std::min(kPush, int(stream.size()) - offset));
    }
    QVERIFY(waitUntil([&] { return thread.pendingBytes() == 0; }));
    QVERIFY(pushAndDrain(thread, "#next$"));
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(dir.path()), frameFileContents({ "next" }), kTimeoutMs);
    QVERIFY(thread.stopThread());

    const QStringList lines = logLinesFrom(m_logPath, logMark);
    QCOMPARE(lines.size(), 1);
    const QRegularExpression dropped(
        R"(INFO  - \[INFO\] Dropped (\d+) characters of an unfinished frame: no end text within 65536 characters\.$)");
    const QRegularExpressionMatch match = dropped.match(lines.first());
    QVERIFY2(match.hasMatch(), qPrintable(lines.first()));
    const int count = match.captured(1).toInt();
    QVERIFY(count > DataThread::kFileCarryLimit);
    QVERIFY(count <= DataThread::kFileCarryLimit + DataThread::kChunkSize);
}

QTEST_GUILESS_MAIN(tst_datathread)
#include "tst_datathread.moc"
