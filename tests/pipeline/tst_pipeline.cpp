#include "ChunkFramer.h"
#include "EveryFrameFramer.h"
#include "FileProbe.h"
#include "FrameFileSink.h"
#include "KeptFrameFileSink.h"
#include "KeyPlan.h"
#include "KeyPlayer.h"
#include "RecordingKeyInjector.h"
#include "ScratchWorker.h"
#include "TestProgramDir.h"
#include "Unshared.h"

#include <QtTest>
#include <dlfcn.h>
#include <initializer_list>
#include <memory>
#include <mutex>

namespace {

constexpr int kWaitMs = 15000;

// One read of a stream, or (silence) the line going quiet.
struct Step
{
    QByteArray bytes;
    bool silence = false;
};
using Steps = QList<Step>;
const Step quiet { {}, true };

// The stream cut into reads of one chunk each, as the worker cuts it.
Steps chunks(const QByteArray& stream)
{
    Steps steps;
    for (int at = 0; at < stream.size(); at += DataThread::kChunkSize)
        steps << Step { stream.mid(at, DataThread::kChunkSize) };
    return steps;
}

void collect(const Framer::Result& result, QStringList& frames, QStringList& dropped)
{
    frames += result.frames;
    dropped += result.dropped;
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

// Each character followed by the pause of the output speed.
QStringList typedWithPauses(const QByteArray& bytes, int delay)
{
    QStringList events;
    for (const char byte : bytes)
        events << typed(QByteArray(1, byte)) << QString("pause %1").arg(delay);
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

// Another output next to the files; read once the worker has stopped.
class RecordingSink final : public FrameSink
{
public:
    void take(const Frame& frame) override { taken << frame; }
    QList<Frame> taken;
};

// Set, renames that refuse to replace fail as on a file system without the flag.
std::atomic<bool> s_renameReplacesOnly { false };

} // namespace

extern "C" int renameat2(int fromDir, const char* from, int toDir, const char* to, unsigned int flags)
{
    if (flags != 0 && s_renameReplacesOnly) {
        errno = EINVAL;
        return -1;
    }
    return reinterpret_cast<decltype(&renameat2)>(dlsym(RTLD_NEXT, "renameat2"))(fromDir, from, toDir, to, flags);
}

Q_DECLARE_METATYPE(Step)

class tst_pipeline final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(ScratchWorker::openLog()); }

    void init()
    {
        m_keys = std::make_unique<RecordingKeyInjector>();
        m_worker = std::make_unique<ScratchWorker>();
        ScratchWorker::logSince();
    }

    void cleanup() { m_worker.reset(); } // the worker goes before the injector it types through

    // Each stream, then a silence, through both framers: the original rules and every frame kept.
    void framersCut_data()
    {
        QTest::addColumn<QString>("start");
        QTest::addColumn<QString>("end");
        QTest::addColumn<Steps>("steps");
        QTest::addColumn<QStringList>("chunked");
        QTest::addColumn<QStringList>("kept");
        QTest::addColumn<QStringList>("dropped");

        const auto row
            = [](const char* name, Steps steps, QStringList chunked, QStringList kept, QStringList dropped = {}) {
                  QTest::newRow(name) << QString("#") << QString("$") << steps << chunked << kept << dropped;
              };
        const QString forty(40, 'k'), k31(31, 'k'), padding(126, 'a');
        row("completed by the next chunk", { { "#ABC$#DE" }, { "F$" } }, { "ABC", "DEF" }, { "ABC", "DEF" });
        row("text before the start", { { "ZZ#AB" }, { "D$" } }, { "ABD" }, { "ABD" });
        row("stray end", { { "ABC$XY" }, { "#D$" } }, { "D" }, { "D" });
        row("empty frame", { { "#$" }, { "#Z$" } }, { "Z" }, { "Z" });
        row("behind an empty frame", { { "#$#A$" }, quiet, { "#Z$" } }, { "A", "Z" }, { "A", "Z" });
        row("second start", { { "##A$" } }, { "#A" }, { "#A" });
        row("silence writes one carried frame",
            { { "#ABC$#DEF$#GHI$" }, quiet, { "#Z$" } },
            { "ABC", "DEF", "Z" },
            { "ABC", "DEF", "GHI", "Z" });
        row("one frame a chunk", { { "#ABC$#DEF$#GHI$" }, { "x" } }, { "ABC", "DEF", "GHI" }, { "ABC", "DEF", "GHI" });
        row("long open start", { { "pre#" + forty.toLatin1() }, { "$" } }, { forty }, { forty });
        row("long open start at the silence",
            { { "#X$#Y$#" + forty.toLatin1() }, quiet, { "$" }, { "#Z$" } },
            { "X", "Y", "Z" },
            { "X", "Y", forty, "Z" });
        row("carried behind the first end", { { "x$y#" + forty.toLatin1() }, { "$" } }, { forty }, { forty });
        row("short start", { { "zz#0123456789" }, { "$" } }, { "0123456789" }, { "0123456789" });
        const QByteArray k30(30, 'k');
        row("start 31 characters from the end",
            { { "x$y$z#" + k30 }, { "$" }, { "#B$#C$" }, quiet, { "#Z$" } },
            { k30, "B", "C", "Z" },
            { k30, "B", "C", "Z" });
        // 32 characters from the start on are no longer short: the text from the first end on is carried,
        // so the frame comes a pass later and the last of a burst is lost.
        row("start 32 characters from the end",
            { { "x$y$z#" + k31.toLatin1() }, { "$" }, { "#B$#C$" }, quiet, { "#Z$" } },
            { k31, "B", "Z" },
            { k31, "B", "C", "Z" });
        QTest::newRow("two-character markers")
            << QString("<<") << QString(">>") << Steps { { "<<A>>" }, { "<<Z>" }, { ">" } }
            << QStringList { "<A", "<Z" } << QStringList { "A", "Z" } << QStringList();
        QTest::newRow("start cut behind a stray end") << QString("##") << QString("$") << Steps { { "A$#" }, { "#B$" } }
                                                      << QStringList { "#B" } << QStringList { "B" } << QStringList();
        row("zero byte", { { QByteArray("#A\0B$", 5) }, { "C$" } }, { "AC" }, { QString::fromUtf8("A\0B", 3) });
        row("UTF-8 cut by the chunk",
            { { "#" + padding.toLatin1() + "\xC3" }, { "\xA9$" } },
            { padding + "\uFFFD\uFFFD" },
            { padding + "\u00E9" });
        row("multi-byte characters", { { "#\xE4\xB8\xAD\xC3\xA9$" } }, { "\u4E2D\u00E9" }, { "\u4E2D\u00E9" });
        row("line ends stay for the sinks",
            { { "#A\r\nB\rC\nD$" }, { "#\r\n$" } },
            { "A\r\nB\rC\nD", "\r\n" },
            { "A\r\nB\rC\nD", "\r\n" });
        QTest::newRow("equal start and end") << QString("#") << QString("#") << Steps { { "#A#" }, { "#B##C#" } }
                                             << QStringList() << QStringList { "A", "B", "C" } << QStringList();
        row("unfinished frame past the carry limit",
            chunks("#" + QByteArray(ChunkFramer::kCarryLimit + 4096, 'x') + "$"),
            {},
            { QString(ChunkFramer::kCarryLimit + 4096, 'x') },
            { "[INFO] Dropped 65664 characters of an unfinished frame: no end text within 65536 characters." });
        // One frame a chunk leaves the rest of each chunk behind it.
        row("backlog of frames past the carry limit",
            chunks(QByteArray("#0123456789abcd$").repeated(5000)),
            QVector<QString>(626, "0123456789abcd").toList(),
            QVector<QString>(5000, "0123456789abcd").toList(),
            { "[INFO] Dropped 65632 characters holding 4102 complete frames: the carried text passed 65536 "
              "characters." });
    }

    void framersCut()
    {
        QFETCH(QString, start);
        QFETCH(QString, end);
        QFETCH(Steps, steps);
        QFETCH(QStringList, kept);

        ChunkFramer chunkFramer(start, end);
        EveryFrameFramer keeper(start, end);
        QStringList chunkFrames, chunkDropped, keptFrames, keptDropped;
        QByteArray whole;
        for (const Step& step : steps + Steps { quiet }) {
            if (!step.silence) {
                collect(chunkFramer.feed(step.bytes), chunkFrames, chunkDropped);
                collect(keeper.feed(step.bytes), keptFrames, keptDropped);
                whole += step.bytes;
            } else if (const std::optional<Framer::Result> ended = chunkFramer.silence()) {
                collect(*ended, chunkFrames, chunkDropped);
            }
        }
        QTEST(chunkFrames, "chunked");
        QTEST(chunkDropped, "dropped");
        QCOMPARE(keptFrames, kept);
        QCOMPARE(keptDropped, QStringList());
        // Kept, the frames do not depend on how the stream falls into reads.
        QCOMPARE(EveryFrameFramer(start, end).feed(whole).frames, kept);
    }

    // Every frame handed over at one time: the file sink of each mode names, prefixes and writes it.
    void fileSinksWrite_data()
    {
        QTest::addColumn<bool>("keep");
        QTest::addColumn<bool>("dirExists");
        QTest::addColumn<QStringList>("frames");
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QByteArrayList>("contents");
        QTest::addColumn<QStringList>("logged");
        const QString name = "20260102_030405_006.txt";
        const QByteArray prefix = "The package barcode info is :";
        QTest::newRow("line ends removed") << false << true << QStringList { "A\r\nB\rC\nD" } << QStringList { name }
                                           << QByteArrayList { prefix + "ABCD" } << QStringList();
        QTest::newRow("kept, line ends removed")
            << true << true << QStringList { "A\r\nB\rC\nD" } << QStringList { name }
            << QByteArrayList { prefix + "ABCD" } << QStringList();
        QTest::newRow("same millisecond replaces") << false << true << QStringList { "A", "B" } << QStringList { name }
                                                   << QByteArrayList { prefix + "B" } << QStringList();
        QTest::newRow("kept, same millisecond numbered")
            << true << true << QStringList { "A", "B" } << QStringList { name, "20260102_030405_006_1.txt" }
            << QByteArrayList { prefix + "A", prefix + "B" } << QStringList();
        QTest::newRow("directory not there, not made")
            << false << false << QStringList { "A" } << QStringList() << QByteArrayList()
            << QStringList { "[INFO] Could not open file %1/" + name + " for writing." };
    }

    void fileSinksWrite()
    {
        QFETCH(bool, keep);
        QFETCH(bool, dirExists);
        QFETCH(QStringList, frames);
        QFETCH(QStringList, logged);
        const QString dir = m_worker->dir() + "/frames";
        QVERIFY(!dirExists || QDir().mkpath(dir));
        std::mutex bufferLock;
        std::unique_ptr<FrameSink> sink;
        if (keep)
            sink = std::make_unique<KeptFrameFileSink>(dir, [](const QString&) {}); // what it says is logged too
        else
            sink = std::make_unique<FrameFileSink>(dir, bufferLock);
        const QDateTime received(QDate(2026, 1, 2), QTime(3, 4, 5, 6));
        for (const QString& frame : frames)
            sink->take({ frame, "camera", received });
        QTEST(FileProbe::textFiles(dir), "files");
        QTEST(FileProbe::textFileContents(dir), "contents");
        QCOMPARE(QFileInfo::exists(dir), dirExists);
        QCOMPARE(ScratchWorker::logSince(), logged.replaceInStrings("%1", dir));
    }

    // Bytes are typed one character a byte, UTF-8 text one character a code point; the log shows
    // what each read typed and the held tail when it goes out.
    void keyPlanTypes_data()
    {
        QTest::addColumn<bool>("utf8");
        QTest::addColumn<QByteArrayList>("reads");
        QTest::addColumn<QStringList>("keys");
        QTest::addColumn<QStringList>("logged");
        // Rows without a held tail: each read is logged as it is, in both encodings.
        const auto both = [](const char* name, const QByteArrayList& reads, const QStringList& keys) {
            QStringList logged;
            for (const QByteArray& read : reads)
                logged << QString(read);
            QTest::addRow("%s", name) << false << reads << keys << logged;
            QTest::addRow("%s, UTF-8", name) << true << reads << keys << logged;
        };
        const auto row = [](const char* name, bool utf8, QByteArrayList reads, QStringList keys, QStringList logged) {
            QTest::newRow(name) << utf8 << reads << keys << logged;
        };
        const QString tab = chord({ 9 }), ctrl = chord({ 17 });
        const QByteArray zero("ab\0\xC3\xA9", 5), latin1Zero("ab\0\xE9", 4), cutZero("a<VK\0z", 6);
        both("plain text", { "AB" }, typed("AB"));
        both("chord", { " < VK_CTRL +  VK_TAB >y" }, typed(" ") << chord({ 17, 9 }) << typed("y"));
        QStringList everyName;
        for (const int key : { 18, 16, 17, 37, 39, 40, 38, 9 })
            everyName << chord({ key });
        both("every name", { "<VK_ALT><VK_SHIFT><VK_CTRL><VK_LEFT><VK_RIGHT><VK_DOWN><VK_UP><VK_TAB>" }, everyName);
        both("six names press five",
             { "<VK_ALT+VK_SHIFT+VK_CTRL+VK_LEFT+VK_RIGHT+VK_DOWN>" },
             { chord({ 18, 16, 17, 37, 39 }) });
        for (const char* text : { "<VK_ALT+VK_F1>", "<VK_F1+VK_TAB>", "<vk_ctrl>", "<>", "<VK_CTRL+>" })
            both(text, { text }, typed(text));
        both("each bracket tried", { "<<VK_TAB>" }, typed("<") << tab);
        both("CR taps, LF types", { "a\r\nb" }, typed("a") << "tap 13" << typed("\nb"));
        both("CR inside a chord", { "<VK_TAB\r>" }, { tab });
        row("chord cut by the read", false, { "abc<VK_CT", "RL>" }, typed("abc") << ctrl, { "abc<VK_CT", "<VK_CTRL>" });
        row("UTF-8, chord cut by the read", true, { "abc<VK_CT", "RL>" }, typed("abc") << ctrl, { "abc", "<VK_CTRL>" });
        const QByteArray held = "x<VK_TAB" + QByteArray(24, ' ');
        row("31 characters held", false, { held, ">" }, typed("x") << tab, { held, held.mid(1) + ">" });
        row("UTF-8, 31 characters held", true, { held, ">" }, typed("x") << tab, { "x", held.mid(1) + ">" });
        const QByteArray long32 = "x<VK_TAB" + QByteArray(25, ' ');
        both("32 characters typed", { long32, ">" }, typed(long32 + ">"));
        const QByteArray closed = "x>y<", tail = "a<VK_TAB>b<VK_\xC3\xA9";
        row("'>' before the last '<', read last",
            false,
            { closed, "VK_CTRL>" },
            typed("x>y") << ctrl,
            { closed, "<VK_CTRL>" });
        row("held tail at the silence", false, { "abc<VK_CT" }, typed("abc<VK_CT"), { "abc<VK_CT", "<VK_CT" });
        row("UTF-8, held tail at the silence",
            true,
            { tail },
            typed("a") << tab << typed("b<VK_\xE9"),
            { "a<VK_TAB>b", "<VK_\u00E9" });
        row("zero byte", false, { latin1Zero }, typed(latin1Zero), { "ab" });
        row("UTF-8, zero byte",
            true,
            { zero },
            typed(latin1Zero),
            { QString::fromUtf8(zero.constData(), zero.size()) });
        row("character cut by the read", false, { "\xC3", "\xA9" }, typed("\xC3\xA9"), { "\uFFFD", "\uFFFD" });
        row("UTF-8, character cut by the read", true, { "\xC3", "\xA9" }, typed("\xE9"), { "\u00E9" });
        // A zero byte ends the read's text: a held tail drops what follows it.
        row("held tail before a zero byte", false, { cutZero, "_TAB>" }, typed("a") << tab, { "a<VK", "<VK_TAB>" });
    }

    void keyPlanTypes()
    {
        QFETCH(bool, utf8);
        QFETCH(QByteArrayList, reads);
        QFETCH(QStringList, logged);
        KeyPlan plan(utf8 ? KeyPlan::Encoding::Utf8 : KeyPlan::Encoding::Latin1);
        const std::atomic<bool> stop { false };
        KeyPlayer player(*m_keys, 0, stop);
        QList<KeyPlan::Typing> typings;
        for (const QByteArray& read : reads)
            typings << plan.feed(read);
        typings << plan.flush();
        QStringList lines;
        for (const KeyPlan::Typing& typing : typings) {
            if (!typing.actions.isEmpty())
                lines << typing.logged;
            player.play(typing.actions, KeyPlayer::Stop::InRetries);
        }
        QTEST(m_keys->keyEvents(), "keys");
        QCOMPARE(lines, logged);
        QCOMPARE(plan.held(), QString());
    }

    // "z<VK_TAB>\r" played at a delay of 3 ms.
    void keyPlayerPausesAndStops_data()
    {
        QTest::addColumn<bool>("betweenSteps");
        QTest::addColumn<bool>("stopAsked");
        QTest::addColumn<int>("refusals"); // -1: every one
        QTest::addColumn<QStringList>("events");
        QTest::addColumn<int>("refusedAttempts");
        const QStringList all = typed("z") + QStringList { "pause 3", chord({ 9 }), "pause 3", "tap 13", "pause 3" };
        QTest::newRow("played") << true << false << 0 << all << 0;
        QTest::newRow("stop asked, stops between steps") << true << true << 0 << QStringList() << 0;
        // The original typing finishes its read even when a stop is asked for.
        QTest::newRow("stop asked, stops only in retries") << false << true << 0 << all << 0;
        // A refused event is tried again after a pause that yields the processor, until it goes in.
        QTest::newRow("refused twice") << false << false << 2 << QStringList { "pause 0", "pause 0" } + all << 2;
        // Asked to stop, each refused event is tried once and given up: the stop is not held up.
        const QStringList pauses { "pause 3", "pause 3", "pause 3" };
        QTest::newRow("refused, stop asked") << false << true << -1 << pauses << 4;
    }

    void keyPlayerPausesAndStops()
    {
        QFETCH(bool, betweenSteps);
        QFETCH(bool, stopAsked);
        QFETCH(int, refusals);
        QFETCH(QStringList, events);
        QFETCH(int, refusedAttempts);
        m_keys->refusals = refusals;
        const std::atomic<bool> stop { stopAsked };
        KeyPlayer player(*m_keys, 3, stop);
        player.play(KeyPlan(KeyPlan::Encoding::Latin1).feed("z<VK_TAB>\r").actions,
                    betweenSteps ? KeyPlayer::Stop::BetweenSteps : KeyPlayer::Stop::InRetries);
        QCOMPARE(m_keys->events(), events);
        QCOMPARE(m_keys->refusedAttempts.load(), refusedAttempts);
    }

    void outputSpeedSetsDelay_data()
    {
        QTest::addColumn<int>("speed");
        QTest::addColumn<int>("delay");
        QTest::newRow("below the range") << -1 << 5;
        QTest::newRow("fastest") << 4 << 1;
        QTest::newRow("above the range") << 5 << 5;
    }

    void outputSpeedSetsDelay()
    {
        QFETCH(int, speed);
        QTEST(KeyPlayer::delayForSpeed(speed), "delay");
    }

    // Kept: a burst in one read and the same cut into single bytes, from two workers into one directory.
    // The second worker is stopped at once: what it received is still written. The file system cannot
    // rename without replacing, as some network ones.
    void keptBurstsShareADirectory()
    {
        s_renameReplacesOnly = true;
        const auto restore = qScopeGuard([] { s_renameReplacesOnly = false; });
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
        const QByteArray fresh(DataThread::kChunkSize + 72, 'f'); // read in two chunks
        QVERIFY(worker.push("#" + fresh + "$"));
        QTRY_COMPARE_WITH_TIMEOUT(worker.frames(), QByteArrayList { fresh }, kWaitMs);
    }

    // Kept frames wait while a small disk of the test's own refuses them, and arrive in order once it takes them.
    void keptFramesWaitForTheDisk_data()
    {
        QTest::addColumn<QString>("mountOptions");
        QTest::addColumn<QString>("trouble");
        QTest::addColumn<QString>("mend");
        QTest::addColumn<QString>("reason");
        // 16 KiB files until the disk takes no more.
        const QString fill = R"(i=0; while head -c 16384 /dev/zero >"$0/fill$i"; do i=$((i+1)); done 2>/dev/null)";
        const QString unfill = R"(rm "$0"/fill*)", remount = R"(mount -o remount,%1 "$0")", rm = R"(rm -r "$0/frames")";
        const QString full = "no space left on the disk", gone = "the directory is gone";
        QTest::newRow("disk full") << "size=64k" << fill << unfill << full;
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

    // A burst the disk takes only part of: two threads write it, what is refused waits, and in the
    // end every frame is there in the order it came.
    void keptBurstOnAFillingDisk()
    {
        if (!Unshared::inside())
            return Unshared::rerun({ "-r", "-m" });
        QTemporaryDir disk;
        QCOMPARE(QProcess::execute("mount", { "-t", "tmpfs", "-o", "nr_inodes=100", "tmpfs", disk.path() }), 0);
        ScratchWorker worker;
        worker.thread.setFileDir(disk.path());
        worker.thread.setKeepEveryFrame(true);
        QStringList notices;
        connect(&worker.thread, &DataThread::writingNotice, this, [&notices](const QString& text) { notices << text; });
        QByteArrayList sent;
        QByteArray burst;
        for (int i = 0; i < 300; ++i) {
            sent << QByteArray::number(i).rightJustified(3, '0');
            burst += "#" + sent.last() + "$";
        }
        QVERIFY(worker.thread.startThread());
        QVERIFY(worker.push(burst));
        QTRY_COMPARE_WITH_TIMEOUT(notices.size(), 1, kWaitMs);
        QCOMPARE(QProcess::execute("mount", { "-o", "remount,nr_inodes=1000", disk.path() }), 0);
        QTRY_COMPARE_WITH_TIMEOUT(worker.frames(disk.path()), sent, kWaitMs);
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
        QFETCH(QStringList, logged);
        ScratchWorker worker;
        for (const QString& name : taken)
            QVERIFY(TestProgramDir::writeFile(worker.dir() + "/" + name, "old"));
        QVERIFY(TestProgramDir::writeFile(worker.dir() + "/" + part, content));
        worker.thread.setKeepEveryFrame(keep);
        QVERIFY(worker.thread.startThread());
        QVERIFY(worker.thread.stopThread()); // the worker looks before it takes in anything
        QTEST(QDir(worker.dir()).entryList(QDir::Files | QDir::Hidden), "files");
        QCOMPARE(ScratchWorker::logSince(), logged.replaceInStrings("%3", worker.dir()));
    }

    // The received bytes the worker has no room for, and an unfinished frame past its limit, are logged.
    void keptBufferIsBounded()
    {
        ScratchWorker worker;
        worker.thread.setKeepEveryFrame(true);
        QVERIFY(worker.thread.startThread());
        ScratchWorker::logSince();
        const QByteArray flood = "#A$#" + QByteArray(DataThread::kKeepingBufferLimit + 1000, 'x');
        worker.thread.pushData(flood.constData(), flood.size());
        QTRY_COMPARE_WITH_TIMEOUT(worker.thread.pendingBytes(), 0, kWaitMs);
        QVERIFY(worker.push("xxxxx"));
        QVERIFY(worker.push("#B$"));
        QTRY_COMPARE_WITH_TIMEOUT(worker.frames(), (QByteArrayList { "A", "B" }), kWaitMs);
        QCOMPARE(ScratchWorker::logSince(),
                 (QStringList { "[INFO] Dropped 1004 received bytes: more than 16777216 bytes waited for the worker.",
                                "[INFO] Dropped 16777217 characters of an unfinished frame: no end text within "
                                "16777216 characters." }));
    }

    // One stream typed and cut into files by the worker, which pauses after each step for the output
    // speed and gives back what typing borrowed once the line is quiet. Each frame also goes to every
    // other sink, with its device and the time it came.
    void workerTypesAndWritesFrames_data()
    {
        QTest::addColumn<bool>("keep");
        QTest::addColumn<int>("speed");
        QTest::addColumn<QStringList>("events");
        const QByteArray first = "#ABC$", second = "#DEF$";
        // The carried frame ends a silence later, which ends in its own "finish".
        QTest::newRow("original framing, speed never set")
            << false << -99
            << typedWithPauses(first, 0) + QStringList { chord({ 9 }), "pause 0" } + typedWithPauses(second, 0)
                + QStringList { "finish", "finish" };
        QTest::newRow("every frame kept, speed 2") << true << 2
                                                   << typedWithPauses(first, 3)
                + QStringList { chord({ 9 }), "pause 3" } + typedWithPauses(second, 3) + QStringList { "finish" };
    }

    void workerTypesAndWritesFrames()
    {
        QFETCH(bool, keep);
        QFETCH(int, speed);
        QFETCH(QStringList, events);
        m_worker->thread.setKeepEveryFrame(keep);
        if (speed != -99)
            m_worker->thread.setOutputSpeed(speed);
        RecordingSink first, second;
        m_worker->thread.setObjectName("camera 7");
        m_worker->thread.addFrameSink(&first);
        m_worker->thread.addFrameSink(&second);
        const QDateTime before = QDateTime::currentDateTime();
        startTyping("#ABC$<VK_TAB>#DEF$", m_keys.get());
        QTRY_COMPARE_WITH_TIMEOUT(m_keys->events(), events, kWaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(m_worker->frames(), (QByteArrayList { "ABC", "DEF" }), kWaitMs);
        QVERIFY(m_worker->thread.stopThread());
        QCOMPARE(second.taken.size(), 2);
        QCOMPARE(first.taken.size(), 2);
        QCOMPARE(first.taken[0].text, "ABC");
        QCOMPARE(first.taken[1].device, "camera 7");
        QVERIFY(first.taken[0].received >= before);
        QCOMPARE(ScratchWorker::logSince().filter("[INFO] The Tapwright outputs data:"),
                 QStringList { "[INFO] The Tapwright outputs data:#ABC$<VK_TAB>#DEF$" });
    }

private:
    void startTyping(const QByteArray& input, KeyInjector* injector)
    {
        m_worker->thread.setKeyInjector(injector);
        m_worker->thread.setKeyOutput(true);
        QVERIFY(m_worker->thread.startThread());
        m_worker->thread.pushData(input.constData(), input.size());
    }

    std::unique_ptr<ScratchWorker> m_worker;
    std::unique_ptr<RecordingKeyInjector> m_keys;
};

QTEST_GUILESS_MAIN(tst_pipeline)
#include "tst_pipeline.moc"
