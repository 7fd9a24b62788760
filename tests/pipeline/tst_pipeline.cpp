#include "RecordingKeyInjector.h"
#include "ScratchWorker.h"
#include "TestProgramDir.h"
#include "Unshared.h"

#include <QtTest>
#include <initializer_list>
#include <memory>
#include <optional>

namespace {

using Frames = QByteArrayList;
constexpr int kWaitMs = 15000;

// A step of a framing row that waits for this many frame files instead of pushing bytes: a file
// written by the silence flush proves the silence has happened.
QByteArray waitForFiles(int count)
{
    return "\x01" + QByteArray::number(count);
}

QStringList typed(const QByteArray& bytes)
{
    QStringList events;
    for (const char byte : bytes) {
        const int code = static_cast<unsigned char>(byte);
        events << QString("char %1 down").arg(code) << QString("char %1 up").arg(code);
    }
    return events;
}

QString chord(std::initializer_list<int> keys)
{
    QStringList down, up;
    for (const int key : keys) {
        down << QString("%1 down").arg(key);
        up << QString("%1 up").arg(key);
    }
    return "keys " + (down + up).join(", ");
}

// Exactly one worker read, so what follows it in the same push is a chunk of its own.
QByteArray fullChunk(const QByteArray& ending)
{
    return QByteArray(DataThread::kChunkSize - ending.size(), 'x') + ending;
}

} // namespace

class tst_pipeline final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(ScratchWorker::openLog()); }
    // Each stream runs through both modes: the frames as cut by the chunk, and every frame kept.
    void framesReachFiles_data()
    {
        QTest::addColumn<bool>("keep");
        QTest::addColumn<QString>("start");
        QTest::addColumn<QString>("end");
        QTest::addColumn<QByteArrayList>("steps");
        QTest::addColumn<QByteArrayList>("frames");

        const auto row = [](const char* name,
                            QByteArrayList steps,
                            QByteArrayList frames,
                            std::optional<Frames> kept = {},
                            QString start = "#",
                            QString end = "$") {
            QTest::addRow("%s", name) << false << start << end << steps << frames;
            QTest::addRow("%s, kept", name) << true << start << end << steps << kept.value_or(frames);
        };
        const QByteArray forty(40, 'k'), k31(31, 'k'), padding(126, 'a');
        row("one chunk", { "#ABC$" }, { "ABC" });
        row("completed by the next chunk", { "#ABC$#DE", "F$" }, { "ABC", "DEF" });
        row("text before the start", { "ZZ#AB", "D$" }, { "ABD" });
        row("stray end", { "ABC$XY", "#D$" }, { "D" });
        row("empty frame", { "#$", "#Z$" }, { "Z" });
        row("behind an empty frame", { "#$#A$", waitForFiles(1), "#Z$" }, { "A", "Z" });
        row("second start", { "##A$" }, { "#A" });
        row("silence writes one carried frame",
            { "#ABC$#DEF$#GHI$", waitForFiles(2), "#Z$" },
            { "ABC", "DEF", "Z" },
            Frames { "ABC", "DEF", "GHI", "Z" });
        row("one frame a chunk", { "#ABC$#DEF$#GHI$", "x" }, { "ABC", "DEF", "GHI" });
        row("long open start", { "pre#" + forty, "$" }, { forty });
        // Kept, an open frame outlasts the silence.
        row("long open start at the silence",
            { "#X$#Y$#" + forty, waitForFiles(2), "$", "#Z$" },
            { "X", "Y", "Z" },
            Frames { "X", "Y", forty, "Z" });
        row("carried behind the first end", { "x$y#" + forty, "$" }, { forty });
        row("short start", { "zz#0123456789", "$" }, { "0123456789" });
        // 32 characters from the start on are no longer short: the text from the first end on is carried,
        // so the frame comes a pass later and the last of a burst is lost.
        row("start 32 characters from the end",
            { "x$y$z#" + k31, "$", "#B$#C$", waitForFiles(2), "#Z$" },
            { k31, "B", "Z" },
            Frames { k31, "B", "C", "Z" });
        row("two-character markers", { "<<A>>", "<<Z>", ">" }, { "<A", "<Z" }, Frames { "A", "Z" }, "<<", ">>");
        row("zero byte", { QByteArray("#A\0B$", 5), "C$" }, { "AC" }, Frames { QByteArray("A\0B", 3) });
        row("UTF-8 cut by the chunk",
            { "#" + padding + "\xC3", "\xA9$" },
            { padding + "\xEF\xBF\xBD\xEF\xBF\xBD" },
            Frames { padding + "\xC3\xA9" });
        row("multi-byte characters", { "#\xE4\xB8\xAD\xC3\xA9$" }, { "\xE4\xB8\xAD\xC3\xA9" });
        row("line ends", { "#A\r\nB\rC\nD$", "#\r\n$" }, { "ABCD", "" });
        row("equal start and end", { "#A#", "#B##C#" }, {}, Frames { "A", "B", "C" }, "#", "#");
    }

    void framesReachFiles()
    {
        QFETCH(bool, keep);
        QFETCH(QString, start);
        QFETCH(QString, end);
        QFETCH(QByteArrayList, steps);
        QFETCH(QByteArrayList, frames);

        ScratchWorker worker(start, end);
        worker.thread.setKeepEveryFrame(keep);
        QVERIFY(worker.thread.startThread());
        for (const QByteArray& step : steps) {
            if (step.startsWith('\x01')) {
                QTRY_VERIFY_WITH_TIMEOUT(worker.frames().size() >= step.mid(1).toInt(), kWaitMs);
            } else {
                QVERIFY(worker.push(step));
            }
        }
        if (frames.isEmpty()) {
            QTest::qWait(300); // past the silence: nothing may come late
        }
        QTRY_COMPARE_WITH_TIMEOUT(worker.frames(), frames, kWaitMs);
    }

    // Kept: a burst in one read and the same cut into single bytes, from two workers into one directory.
    // The second worker is stopped at once: what it received is still written.
    void keptBurstsShareADirectory()
    {
        ScratchWorker first, second;
        QByteArrayList sent[2];
        QByteArray bursts[2];
        for (int i = 0; i < 1000; ++i) {
            for (const int w : { 0, 1 }) {
                sent[w] << QByteArray::number(w * 100000 + i).rightJustified(13, '0');
                bursts[w] += "#" + sent[w].last() + "$";
            }
        }
        second.thread.setFileDir(first.dir());
        for (ScratchWorker* worker : { &first, &second }) {
            worker->thread.setKeepEveryFrame(true);
            QVERIFY(worker->thread.startThread());
        }
        second.thread.pushData(bursts[1].constData(), bursts[1].size());
        QVERIFY(second.thread.stopThread());
        for (const char byte : bursts[0])
            first.thread.pushData(&byte, 1);
        QTRY_COMPARE_WITH_TIMEOUT(first.frames().size(), 2000, kWaitMs);
        QByteArrayList of[2]; // each worker's frames in the order they were sent
        for (const QByteArray& frame : first.frames())
            of[frame.startsWith("00000001")] << frame;
        QCOMPARE(of[0] + of[1], sent[0] + sent[1]);
        QVERIFY(QDir(first.dir()).entryList(QDir::Files | QDir::Hidden).filter(".part").isEmpty());
    }

    void pushKeepsToTheLimit_data()
    {
        QTest::addColumn<QList<int>>("pushes");
        QTest::addColumn<int>("kept");
        QTest::newRow("small") << QList<int> { 100 } << 100;
        QTest::newRow("exactly the limit") << QList<int> { 4096 } << 4096;
        QTest::newRow("above the limit") << QList<int> { 5000 } << 4096;
        QTest::newRow("second push cut") << QList<int> { 3000, 3000 } << 4096;
        QTest::newRow("into a full buffer") << QList<int> { 4096, 10 } << 4096;
        QTest::newRow("empty and negative") << QList<int> { 0, -5, 7 } << 7;
    }

    void pushKeepsToTheLimit()
    {
        QFETCH(QList<int>, pushes);
        QFETCH(int, kept);
        DataThread thread;
        const QByteArray bytes(8192, 'b');
        for (int len : pushes)
            thread.pushData(bytes.constData(), len);
        QCOMPARE(thread.pendingBytes(), kept);
        QVERIFY(thread.stopThread()); // a worker never started keeps what it holds
        QCOMPARE(thread.pendingBytes(), kept);
    }

    void stopAndRestartBeginAfresh()
    {
        ScratchWorker worker;
        QVERIFY(worker.thread.startThread());
        QVERIFY(worker.push("#carried"));
        const QByteArray noise(DataThread::kBufferLimit, 'n');
        worker.thread.pushData(noise.constData(), noise.size());
        QVERIFY(worker.thread.stopThread());
        QVERIFY(worker.thread.isFinished());
        QCOMPARE(worker.thread.pendingBytes(), 0);

        worker.thread.pushData("#stale$", 7);
        QVERIFY(worker.thread.startThread()); // drops what came while stopped, or "stale" is written
        // Without the carried start this end closes nothing.
        QVERIFY(worker.push("tail$"));
        QVERIFY(worker.push("#fresh$"));
        QTRY_COMPARE_WITH_TIMEOUT(worker.frames(), QByteArrayList { "fresh" }, kWaitMs);
    }

    void vanishedDirectoryRefusesFramesUntilBack()
    {
        ScratchWorker worker;
        QVERIFY(worker.thread.startThread());
        ScratchWorker::logSince();
        QVERIFY(QDir(worker.dir()).removeRecursively());
        QVERIFY(worker.push("#lost$"));
        QStringList lines; // gathered: the macro asks again once it holds
        QTRY_VERIFY_WITH_TIMEOUT(!(lines += ScratchWorker::logSince()).filter("Could not open file").isEmpty(),
                                 kWaitMs);
        QVERIFY(!QFileInfo::exists(worker.dir()) && QDir().mkpath(worker.dir()));
        QVERIFY(worker.push("#back$"));
        QTRY_COMPARE_WITH_TIMEOUT(worker.frames(), QByteArrayList { "back" }, kWaitMs);
    }

    void carryIsBounded_data()
    {
        QTest::addColumn<QByteArray>("stream");
        QTest::addColumn<QString>("dropped");
        QTest::addColumn<int>("frameSize");
        QTest::newRow("unfinished frame")
            << "#" + QByteArray(DataThread::kFileCarryLimit + 4096, 'x') + "$"
            << "characters of an unfinished frame: no end text within 65536 characters" << 0;
        // One frame a pass leaves the rest of each chunk behind it.
        QTest::newRow("backlog of frames")
            << QByteArray("#0123456789abcd$").repeated(5000)
            << "characters holding (\\d+) complete frames: the carried text passed 65536 "
               "characters"
            << 16;
    }

    void carryIsBounded()
    {
        QFETCH(QByteArray, stream);
        QFETCH(QString, dropped);
        QFETCH(int, frameSize);
        ScratchWorker worker;
        QVERIFY(worker.thread.startThread());
        ScratchWorker::logSince();
        // Fed fast enough that no silence flush comes between.
        for (int offset = 0; offset < stream.size(); offset += 1024) {
            QTRY_VERIFY(worker.thread.pendingBytes() <= DataThread::kBufferLimit - 1024);
            worker.thread.pushData(stream.constData() + offset, std::min(1024, int(stream.size()) - offset));
        }
        QStringList lines;
        QTRY_VERIFY_WITH_TIMEOUT(!(lines += ScratchWorker::logSince()).isEmpty(), kWaitMs);
        QCOMPARE(lines.size(), 1);
        const QRegularExpressionMatch match
            = QRegularExpression(R"(^\[INFO\] Dropped (\d+) )" + dropped + "\\.$").match(lines.first());
        QVERIFY2(match.hasMatch(), qPrintable(lines.first()));
        QVERIFY(match.captured(1).toInt() > DataThread::kFileCarryLimit);
        QVERIFY(match.captured(1).toInt() <= DataThread::kFileCarryLimit + DataThread::kChunkSize);
        QCOMPARE(match.captured(2).toInt(), frameSize ? match.captured(1).toInt() / frameSize : 0);
    }

    void keptBufferIsBounded()
    {
        ScratchWorker worker;
        worker.thread.setKeepEveryFrame(true);
        QVERIFY(worker.thread.startThread());
        ScratchWorker::logSince();
        const QByteArray flood = "#A$" + QByteArray(DataThread::kKeepingBufferLimit + 1000, 'x');
        worker.thread.pushData(flood.constData(), flood.size());
        QTRY_COMPARE_WITH_TIMEOUT(worker.thread.pendingBytes(), 0, kWaitMs);
        QVERIFY(worker.push("#B$"));
        QTRY_COMPARE_WITH_TIMEOUT(worker.frames(), (QByteArrayList { "A", "B" }), kWaitMs);
        QCOMPARE(ScratchWorker::logSince(),
                 QStringList { "[INFO] Dropped 1003 received bytes: more than 16777216 bytes waited for the worker." });
    }

    // Kept frames wait while a small disk of the test's own refuses them, and arrive in order once it takes them.
    void keptFramesWaitForTheDisk_data()
    {
        QTest::addColumn<QString>("mountOptions");
        QTest::addColumn<QString>("trouble");
        QTest::addColumn<QString>("mend");
        QTest::addColumn<QString>("reason");
        // 16 KiB files until the disk takes no more, whether space or inodes run out first.
        const QString fill = R"(i=0; while head -c 16384 /dev/zero >"$0/fill$i"; do i=$((i+1)); done 2>/dev/null)";
        const QString unfill = R"(rm "$0"/fill*)", remount = R"(mount -o remount,%1 "$0")", rm = R"(rm -r "$0/frames")";
        const QString full = "no space left on the disk", gone = "the directory is gone";
        QTest::newRow("disk full") << "size=64k" << fill << unfill << full;
        QTest::newRow("no inodes") << "nr_inodes=16" << fill << unfill << full;
        QTest::newRow("directory removed") << "size=64k" << rm << "true" << gone;
        QTest::newRow("a file in its place")
            << "size=64k" << rm + R"( && touch "$0/frames")" << rm << "Not a directory";
        QTest::newRow("read-only") << "size=64k" << remount.arg("ro") << remount.arg("rw")
                                   << "no permission to write there";
    }

    void keptFramesWaitForTheDisk()
    {
        if (!Unshared::inside())
            return Unshared::rerun({ "-r", "-m" });
        QFETCH(QString, mountOptions);
        QFETCH(QString, trouble);
        QFETCH(QString, mend);
        QFETCH(QString, reason);
        QTemporaryDir disk;
        QCOMPARE(QProcess::execute("mount", { "-t", "tmpfs", "-o", mountOptions, "tmpfs", disk.path() }), 0);
        ScratchWorker worker;
        const QString dir = disk.filePath("frames");
        QVERIFY(QDir().mkpath(dir));
        worker.thread.setFileDir(dir);
        worker.thread.setKeepEveryFrame(true);
        QStringList notices;
        connect(&worker.thread, &DataThread::writingNotice, this, [&notices](const QString& text) { notices << text; });
        QVERIFY(worker.thread.startThread());
        QCOMPARE(QProcess::execute("sh", { "-c", trouble, disk.path() }), 0);
        QVERIFY(worker.push("#A$#B$"));
        const QString stopped = "Frames cannot be written to %1: %2. They wait in memory and are written as soon as "
                                "the disk takes them again.";
        QTRY_COMPARE_WITH_TIMEOUT(notices, QStringList { stopped.arg(dir, reason) }, kWaitMs);
        QVERIFY(worker.push("#C$"));
        QCOMPARE(QDir(dir).entryList(QDir::Files | QDir::Hidden), QStringList());
        QCOMPARE(QProcess::execute("sh", { "-c", mend, disk.path() }), 0);
        QTRY_COMPARE_WITH_TIMEOUT(worker.frames(dir), (QByteArrayList { "A", "B", "C" }), kWaitMs);
        const QString resumed = "Frames are written to %1 again; the 3 frames that waited are saved.";
        QTRY_COMPARE_WITH_TIMEOUT(notices, (QStringList { stopped.arg(dir, reason), resumed.arg(dir) }), kWaitMs);
        const QString logged = "[INFO] Frames cannot be written to %1: %2. They wait in memory, up to 67108864 bytes "
                               "or 1000000 frames, and are written when the disk takes them again.";
        const QString back = "[INFO] Frames are written to %1 again; 3 frames waited.";
        QCOMPARE(ScratchWorker::logSince(), (QStringList { logged.arg(dir, reason), back.arg(dir) }));
    }

    // At the start of a worker that keeps every frame, what a crash left under a temporary name.
    void unfinishedFramesAreRecovered_data()
    {
        QTest::addColumn<bool>("keep");
        QTest::addColumn<QString>("part");
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QStringList>("taken");
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QStringList>("logged");
        const QString left = ".20260101_120000_000-999999999-7-33.part"; // no process has so large an id
        const QString name = "20260101_120000_000.txt", running = ".20260101_120000_000-%1-7-33.part";
        const QString ours = running.arg(QCoreApplication::applicationPid());
        const QByteArray whole = "The package barcode info is :ABCD";
        const QString found = "[INFO] Unfinished frame files in %3: %1 complete ones recovered, %2 cut ones removed.";
        const QStringList none, recovered { found.arg(1).arg(0) }, removed { found.arg(0).arg(1) };
        QTest::newRow("complete") << true << left << whole << none << QStringList { name } << recovered;
        QTest::newRow("cut") << true << left << whole.left(32) << none << none << removed;
        QTest::newRow("name taken") << true << left << whole << QStringList { name }
                                    << QStringList { name, "20260101_120000_000_1.txt" } << recovered;
        QTest::newRow("foreign") << true << ".notes.part" << whole << none << QStringList { ".notes.part" } << none;
        QTest::newRow("a running writer's") << true << ours << whole.left(3) << none << QStringList { ours } << none;
        QTest::newRow("frames cut by the chunk") << false << left << whole << none << QStringList { left } << none;
    }

    void unfinishedFramesAreRecovered()
    {
        QFETCH(bool, keep);
        QFETCH(QString, part);
        QFETCH(QByteArray, content);
        QFETCH(QStringList, taken);
        QFETCH(QStringList, files);
        QFETCH(QStringList, logged);
        ScratchWorker worker;
        for (const QString& name : taken)
            QVERIFY(TestProgramDir::writeFile(worker.dir() + "/" + name, "old"));
        QVERIFY(TestProgramDir::writeFile(worker.dir() + "/" + part, content));
        worker.thread.setKeepEveryFrame(keep);
        QVERIFY(worker.thread.startThread());
        QVERIFY(worker.thread.stopThread()); // the worker looks before it takes in anything
        QCOMPARE(QDir(worker.dir()).entryList(QDir::Files | QDir::Hidden), files);
        QCOMPARE(ScratchWorker::logSince(), logged.replaceInStrings("%3", worker.dir()));
    }

    void init()
    {
        m_keys = std::make_unique<RecordingKeyInjector>();
        m_worker = std::make_unique<ScratchWorker>();
        ScratchWorker::logSince();
    }

    void cleanup() { m_worker.reset(); } // the worker goes before the injector it types through
    void typesStreamAsKeys_data()
    {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<QStringList>("logged");

        const auto row =
            [](const char* name, const QByteArray& input, const QStringList& expected, const QStringList& logged = {}) {
                QTest::newRow(name) << input << expected << logged;
            };
        const QString tab = chord({ 9 }), ctrl = chord({ 17 });
        row("plain text", "AB", typed("AB"), { "AB" });
        row("chord", " < VK_CTRL +  VK_TAB >y", typed(" ") << chord({ 17, 9 }) << typed("y"));
        QStringList everyName;
        for (const int key : { 18, 16, 17, 37, 39, 40, 38, 9 })
            everyName << chord({ key });
        row("every name", "<VK_ALT><VK_SHIFT><VK_CTRL><VK_LEFT><VK_RIGHT><VK_DOWN><VK_UP><VK_TAB>", everyName);
        row("six names press five",
            "<VK_ALT+VK_SHIFT+VK_CTRL+VK_LEFT+VK_RIGHT+VK_DOWN>",
            { chord({ 18, 16, 17, 37, 39 }) });
        for (const char* text : { "<VK_ALT+VK_F1>", "<VK_F1+VK_TAB>", "<vk_ctrl>", "<>", "<VK_CTRL+>" })
            row(text, text, typed(text));
        row("each bracket tried", "<<VK_TAB>", typed("<") << tab);
        row("CR taps, LF types", "a\r\nb", typed("a") << "tap 13" << typed("\nb"));
        row("zero byte", QByteArray("ab\0\xE9", 4), typed(QByteArray("ab\0\xE9", 4)), { "ab" });
        const QByteArray cut = fullChunk("abc<VK_CT");
        row("chord cut by the chunk", cut + "RL>", typed(cut.chopped(6)) << ctrl, { cut, "<VK_CTRL>" });
        const QByteArray held = fullChunk("<VK_TAB" + QByteArray(24, ' '));
        row("31 characters held", held + ">", typed(held.chopped(31)) << tab, { held, held.right(31) + ">" });
        const QByteArray long32 = fullChunk("<VK_TAB" + QByteArray(25, ' '));
        row("32 characters typed", long32 + ">", typed(long32 + ">"), { long32, ">" });
        const QByteArray closed = fullChunk("x>y<VK_CT");
        row("'>' before the last '<'", closed + "RL>", typed(closed.chopped(6)) << ctrl, { closed, "<VK_CTRL>" });
        row("held tail at the silence", cut, typed(cut), { cut, "<VK_CT" });
        row("kept: held tail at the silence", "a<VK_TAB>b<VK_CT", typed("a") << tab << typed("b<VK_CT"));
        row("frames while typing", "#ABC$<VK_TAB>#DEF$", typed("#ABC$") << tab << typed("#DEF$"));
    }

    void typesStreamAsKeys()
    {
        QFETCH(QByteArray, input);
        QFETCH(QStringList, expected);
        QFETCH(QStringList, logged);

        m_worker->thread.setKeepEveryFrame(QByteArray(QTest::currentDataTag()).startsWith("kept"));
        startTyping(input, m_keys.get());
        QTRY_VERIFY_WITH_TIMEOUT(typingSettled(), kWaitMs);
        QCOMPARE(m_keys->keyEvents(), expected);
        // The held tail goes out in the same quiet spell that ends the typing.
        QCOMPARE(m_keys->events().count("finish"), 1);
        const QStringList lines = ScratchWorker::logSince().filter("[INFO] The Tapwright outputs data:");
        if (!logged.isEmpty())
            QCOMPARE(lines, logged.replaceInStrings(QRegularExpression("^"), "[INFO] The Tapwright outputs data:"));
        const QByteArrayList frames = input.contains('#') ? QByteArrayList { "ABC", "DEF" } : QByteArrayList();
        QTRY_COMPARE_WITH_TIMEOUT(m_worker->frames(), frames, kWaitMs);
    }

    void outputSpeedSetsPause_data()
    {
        QTest::addColumn<int>("speed");
        QTest::addColumn<QString>("pause");
        QTest::newRow("never set") << -99 << "pause 0";
        for (int speed = -1; speed <= 5; ++speed)
            QTest::addRow("%d", speed) << speed << QString("pause %1").arg(speed >= 0 && speed <= 4 ? 5 - speed : 5);
    }

    void outputSpeedSetsPause()
    {
        QFETCH(int, speed);
        QFETCH(QString, pause);
        if (speed != -99)
            m_worker->thread.setOutputSpeed(speed);
        startTyping("z<VK_TAB>\r", m_keys.get());
        QTRY_VERIFY_WITH_TIMEOUT(typingSettled(), kWaitMs);
        QCOMPARE(m_keys->events().join('|'),
                 (typed("z") + QStringList { pause, chord({ 9 }), pause, "tap 13", pause, "finish" }).join('|'));
    }

    void refusedInjectorDoesNotHoldUpStop()
    {
        m_keys->refusing = true;
        startTyping("a<VK_TAB>", m_keys.get());
        QTRY_VERIFY_WITH_TIMEOUT(m_keys->refusedAttempts > 100, kWaitMs);
        QVERIFY(m_worker->thread.stopThread());
        QVERIFY(m_worker->thread.isFinished());
        QVERIFY(m_keys->keyEvents().isEmpty());
    }

    void missingDisplayIsLoggedOncePerStart()
    {
        QVERIFY(qEnvironmentVariableIsEmpty("DISPLAY"));
        const QStringList notice { "[INFO] Key output is off: no X display to type into." };
        RecordingKeyInjector unavailable;
        unavailable.available = false;
        for (KeyInjector* injector : QVector<KeyInjector*> { nullptr, nullptr, &unavailable }) {
            const int files = m_worker->frames().size();
            startTyping("#run$", injector);
            QTRY_COMPARE_WITH_TIMEOUT(m_worker->frames().size(), files + 1, kWaitMs);
            QVERIFY(m_worker->thread.stopThread());
            QCOMPARE(ScratchWorker::logSince(), notice);
        }
        QVERIFY(unavailable.events().isEmpty());
    }

private:
    void startTyping(const QByteArray& input, KeyInjector* injector)
    {
        m_worker->thread.setKeyInjector(injector);
        m_worker->thread.setKeyOutput(true);
        QVERIFY(m_worker->thread.startThread());
        m_worker->thread.pushData(input.constData(), input.size());
    }

    bool typingSettled() const { return !m_keys->keyEvents().isEmpty() && m_keys->events().endsWith("finish"); }

    std::unique_ptr<ScratchWorker> m_worker;
    std::unique_ptr<RecordingKeyInjector> m_keys;
};

QTEST_GUILESS_MAIN(tst_pipeline)
#include "tst_pipeline.moc"
