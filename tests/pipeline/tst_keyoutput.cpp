#include "DataThread.h"
#include "FileProbe.h"
#include "Logger.h"
#include "RecordingKeyInjector.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>
#include <initializer_list>

namespace {

constexpr int kWaitMs = 5000;
const QString kDataLine = "[INFO] The Tapwright outputs data:";

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
    QStringList parts;
    for (const int key : keys) {
        parts << QString("%1 down").arg(key);
    }
    for (const int key : keys) {
        parts << QString("%1 up").arg(key);
    }
    return "keys " + parts.join(", ");
}

// A chunk of exactly one worker read, so that what follows it in the same push is a chunk of its own.
QByteArray fullChunk(const QByteArray& ending)
{
    return QByteArray(DataThread::kChunkSize - ending.size(), 'x') + ending;
}

// Typing is over once the line has been quiet long enough for the worker to finish it.
bool typingSettled(const RecordingKeyInjector& injector)
{
    const QStringList events = injector.events();
    return !injector.keyEvents().isEmpty() && !events.isEmpty() && events.last() == "finish";
}

} // namespace

class tst_keyoutput final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void typesStreamAsKeys_data();
    void typesStreamAsKeys();
    void pausesAfterEveryStep();
    void outputSpeedSetsPause_data();
    void outputSpeedSetsPause();
    void holdsOpenChordAtChunkEnd_data();
    void holdsOpenChordAtChunkEnd();
    void typesHeldTailAfterSilence();
    void logsTextUpToZeroByte();
    void refusedInjectorDoesNotHoldUpStop();
    void framesReachFilesWhileTyping();
    void missingDisplayIsLoggedOncePerStart();

private:
    void startWorker(RecordingKeyInjector* injector);
    // Log lines written since the last call, without the logger's time and level.
    QStringList newLogMessages();

    QTemporaryDir m_logDir;
    qint64 m_logOffset = 0;
    QScopedPointer<QTemporaryDir> m_frameDir;
    QScopedPointer<DataThread> m_worker;
    QScopedPointer<RecordingKeyInjector> m_injector;
};

void tst_keyoutput::initTestCase()
{
    QVERIFY(m_logDir.isValid());
    QVERIFY(Logger::open(m_logDir.filePath("log.txt").toStdString()));
    newLogMessages();
}

void tst_keyoutput::init()
{
    m_frameDir.reset(new QTemporaryDir);
    QVERIFY(m_frameDir->isValid());
    m_worker.reset(new DataThread);
    m_injector.reset(new RecordingKeyInjector);
    newLogMessages();
}

void tst_keyoutput::cleanup()
{
    // The worker may still be typing; it goes before the injector it types through.
    m_worker->stopThread();
    m_worker.reset();
    m_injector.reset();
}

void tst_keyoutput::startWorker(RecordingKeyInjector* injector)
{
    m_worker->setKeyInjector(injector);
    m_worker->setKeyOutput(true);
    m_worker->setStartEndChar("#", "$");
    m_worker->setFileDir(m_frameDir->path());
    m_worker->startThread();
}

QStringList tst_keyoutput::newLogMessages()
{
    QFile file(m_logDir.filePath("log.txt"));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    file.seek(m_logOffset);
    const QByteArray added = file.readAll();
    m_logOffset += added.size();
    QStringList messages;
    for (const QByteArray& line : added.split('\n')) {
        const int separator = line.indexOf(" - ");
        if (separator >= 0) {
            messages << QString::fromUtf8(line.mid(separator + 3));
        }
    }
    return messages;
}

void tst_keyoutput::typesStreamAsKeys_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("plain text") << QByteArray("AB") << typed("AB");
    QTest::newRow("chord between characters")
        << QByteArray("x<VK_CTRL+VK_TAB>y") << typed("x") + QStringList { chord({ 17, 9 }) } + typed("y");
    QTest::newRow("blanks inside the brackets")
        << QByteArray(" < VK_CTRL +  VK_TAB > ") << typed(" ") + QStringList { chord({ 17, 9 }) } + typed(" ");
    QTest::newRow("every name") << QByteArray("<VK_ALT><VK_SHIFT><VK_CTRL><VK_LEFT><VK_RIGHT><VK_DOWN><VK_UP><VK_TAB>")
                                << QStringList { chord({ 18 }), chord({ 16 }), chord({ 17 }), chord({ 37 }),
                                                 chord({ 39 }), chord({ 40 }), chord({ 38 }), chord({ 9 }) };
    QTest::newRow("six names press the first five") << QByteArray("<VK_ALT+VK_SHIFT+VK_CTRL+VK_LEFT+VK_RIGHT+VK_DOWN>")
                                                    << QStringList { chord({ 18, 16, 17, 37, 39 }) };
    QTest::newRow("bad sixth name") << QByteArray("<VK_ALT+VK_SHIFT+VK_CTRL+VK_LEFT+VK_RIGHT+VK_F1>")
                                    << typed("<VK_ALT+VK_SHIFT+VK_CTRL+VK_LEFT+VK_RIGHT+VK_F1>");
    QTest::newRow("bad first name") << QByteArray("<VK_F1+VK_TAB>") << typed("<VK_F1+VK_TAB>");
    QTest::newRow("lower case") << QByteArray("<vk_ctrl>") << typed("<vk_ctrl>");
    QTest::newRow("enter has no name") << QByteArray("<VK_ENTER>") << typed("<VK_ENTER>");
    QTest::newRow("empty brackets") << QByteArray("<>") << typed("<>");
    QTest::newRow("trailing plus") << QByteArray("<VK_CTRL+>") << typed("<VK_CTRL+>");
    QTest::newRow("each following bracket tried")
        << QByteArray("<<VK_TAB>") << typed("<") + QStringList { chord({ 9 }) };
    QTest::newRow("CR taps the key, LF is a character")
        << QByteArray("a\r\nb") << typed("a") + QStringList { "tap 13" } + typed("\n") + typed("b");
    QTest::newRow("byte above 127") << QByteArray("\xE9") << typed("\xE9");
    QTest::newRow("zero byte inside the chunk") << QByteArray("a\0b", 3) << typed(QByteArray("a\0b", 3));
}

void tst_keyoutput::typesStreamAsKeys()
{
    QFETCH(QByteArray, input);
    QFETCH(QStringList, expected);

    RecordingKeyInjector& injector = *m_injector;
    startWorker(&injector);
    m_worker->pushData(input.constData(), input.size());

    QTRY_VERIFY_WITH_TIMEOUT(typingSettled(injector), kWaitMs);
    QCOMPARE(injector.keyEvents(), expected);
}

void tst_keyoutput::pausesAfterEveryStep()
{
    RecordingKeyInjector& injector = *m_injector;
    m_worker->setOutputSpeed(4);
    startWorker(&injector);
    const QByteArray input("a<VK_TAB>\r");
    m_worker->pushData(input.constData(), input.size());

    QTRY_VERIFY_WITH_TIMEOUT(typingSettled(injector), kWaitMs);
    QStringList events = injector.events();
    events.removeAll("finish");
    const QStringList expected = typed("a") + QStringList { "pause 1", chord({ 9 }), "pause 1", "tap 13", "pause 1" };
    QCOMPARE(events, expected);
}

void tst_keyoutput::outputSpeedSetsPause_data()
{
    QTest::addColumn<bool>("setSpeed");
    QTest::addColumn<int>("speed");
    QTest::addColumn<QString>("pause");

    QTest::newRow("never set") << false << 0 << "pause 0";
    QTest::newRow("0") << true << 0 << "pause 5";
    QTest::newRow("1") << true << 1 << "pause 4";
    QTest::newRow("2") << true << 2 << "pause 3";
    QTest::newRow("3") << true << 3 << "pause 2";
    QTest::newRow("4") << true << 4 << "pause 1";
    QTest::newRow("5") << true << 5 << "pause 5";
    QTest::newRow("-1") << true << -1 << "pause 5";
}

void tst_keyoutput::outputSpeedSetsPause()
{
    QFETCH(bool, setSpeed);
    QFETCH(int, speed);
    QFETCH(QString, pause);

    RecordingKeyInjector& injector = *m_injector;
    if (setSpeed) {
        m_worker->setOutputSpeed(speed);
    }
    startWorker(&injector);
    m_worker->pushData("z", 1);

    QTRY_VERIFY_WITH_TIMEOUT(typingSettled(injector), kWaitMs);
    QCOMPARE(injector.events().mid(0, 3), typed("z") + QStringList { pause });
}

void tst_keyoutput::holdsOpenChordAtChunkEnd_data()
{
    QTest::addColumn<QByteArray>("firstChunk");
    QTest::addColumn<QByteArray>("secondChunk");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<QStringList>("loggedTexts");

    const QByteArray cut = fullChunk("abc<VK_CT");
    QTest::newRow("chord cut by the chunk end")
        << cut << QByteArray("RL>") << typed(cut.left(cut.size() - 6)) + QStringList { chord({ 17 }) }
        << QStringList { QString(cut), "<VK_CTRL>" };

    // 31 characters from the '<' on are held; 32 are typed at once.
    const QByteArray held = fullChunk("<VK_TAB" + QByteArray(24, ' '));
    QTest::newRow("tail of 31 characters held")
        << held << QByteArray(">") << typed(held.left(held.size() - 31)) + QStringList { chord({ 9 }) }
        << QStringList { QString(held), "<VK_TAB" + QString(24, ' ') + ">" };
    const QByteArray long32 = fullChunk("<VK_TAB" + QByteArray(25, ' '));
    QTest::newRow("tail of 32 characters typed")
        << long32 << QByteArray(">") << typed(long32) + typed(">") << QStringList { QString(long32), ">" };

    const QByteArray closed = fullChunk("<a>b");
    QTest::newRow("'>' behind the last '<'")
        << closed << QByteArray("c") << typed(closed) + typed("c") << QStringList { QString(closed), "c" };
    const QByteArray closedBefore = fullChunk("x>y<VK_CT");
    QTest::newRow("'>' in front of the last '<'")
        << closedBefore << QByteArray("RL>")
        << typed(closedBefore.left(closedBefore.size() - 6)) + QStringList { chord({ 17 }) }
        << QStringList { QString(closedBefore), "<VK_CTRL>" };
}

void tst_keyoutput::holdsOpenChordAtChunkEnd()
{
    QFETCH(QByteArray, firstChunk);
    QFETCH(QByteArray, secondChunk);
    QFETCH(QStringList, expected);
    QFETCH(QStringList, loggedTexts);
    QCOMPARE(firstChunk.size(), DataThread::kChunkSize);

    RecordingKeyInjector& injector = *m_injector;
    startWorker(&injector);
    const QByteArray both = firstChunk + secondChunk;
    m_worker->pushData(both.constData(), both.size());

    QTRY_VERIFY_WITH_TIMEOUT(typingSettled(injector), kWaitMs);
    QCOMPARE(injector.keyEvents(), expected);
    QStringList expectedLog;
    for (const QString& text : loggedTexts) {
        expectedLog << kDataLine + text;
    }
    QCOMPARE(newLogMessages(), expectedLog);
}

void tst_keyoutput::typesHeldTailAfterSilence()
{
    RecordingKeyInjector& injector = *m_injector;
    startWorker(&injector);
    const QByteArray chunk = fullChunk("abc<VK_CT");
    m_worker->pushData(chunk.constData(), chunk.size());

    QTRY_VERIFY_WITH_TIMEOUT(typingSettled(injector), kWaitMs);
    QCOMPARE(injector.keyEvents(), typed(chunk));
    QCOMPARE(newLogMessages(), QStringList({ kDataLine + QString(chunk), kDataLine + "<VK_CT" }));
    // The tail goes out in the same quiet spell that ends the typing, not after a second one.
    const QStringList events = injector.events();
    QCOMPARE(events.mid(events.lastIndexOf("char 84 up") + 1), QStringList({ "pause 0", "finish" }));
}

void tst_keyoutput::logsTextUpToZeroByte()
{
    RecordingKeyInjector& injector = *m_injector;
    startWorker(&injector);
    const QByteArray input("ab\0cd", 5);
    m_worker->pushData(input.constData(), input.size());

    QTRY_VERIFY_WITH_TIMEOUT(typingSettled(injector), kWaitMs);
    QCOMPARE(injector.keyEvents(), typed(input));
    QCOMPARE(newLogMessages(), QStringList { kDataLine + "ab" });
}

void tst_keyoutput::refusedInjectorDoesNotHoldUpStop()
{
    RecordingKeyInjector& injector = *m_injector;
    injector.setRefusing(true);
    startWorker(&injector);
    m_worker->pushData("ab", 2);

    QTRY_VERIFY_WITH_TIMEOUT(injector.refusedAttempts() > 100, kWaitMs);
    QVERIFY(m_worker->stopThread());
    QVERIFY(m_worker->isFinished());
    QVERIFY(injector.keyEvents().isEmpty());
}

void tst_keyoutput::framesReachFilesWhileTyping()
{
    RecordingKeyInjector& injector = *m_injector;
    startWorker(&injector);
    const QByteArray input("#ABC$<VK_TAB>#DEF$");
    m_worker->pushData(input.constData(), input.size());

    QTRY_VERIFY_WITH_TIMEOUT(typingSettled(injector), kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(m_frameDir->path()).size(), 2, kWaitMs);
    QCOMPARE(FileProbe::textFileContents(m_frameDir->path()),
             QList<QByteArray>({ "The package barcode info is :ABC", "The package barcode info is :DEF" }));
    QCOMPARE(injector.keyEvents(), typed("#ABC$") + QStringList { chord({ 9 }) } + typed("#DEF$"));
}

void tst_keyoutput::missingDisplayIsLoggedOncePerStart()
{
    QVERIFY(qEnvironmentVariableIsEmpty("DISPLAY"));
    const QString notice = "[INFO] Key output is off: no X display to type into.";
    startWorker(nullptr);
    for (int run = 1; run <= 2; ++run) {
        if (run == 2) {
            m_worker->startThread();
        }
        const QByteArray frame = QString("#run%1$").arg(run).toLatin1();
        m_worker->pushData(frame.constData(), frame.size());
        QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFiles(m_frameDir->path()).size(), run, kWaitMs);
        m_worker->stopThread();
        QCOMPARE(newLogMessages(), QStringList { notice });
    }

    RecordingKeyInjector unavailable(false);
    m_worker->setKeyInjector(&unavailable);
    m_worker->startThread();
    m_worker->pushData("#run3$", 6);
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFiles(m_frameDir->path()).size(), 3, kWaitMs);
    m_worker->stopThread();
    QCOMPARE(newLogMessages(), QStringList { notice });
    QVERIFY(unavailable.events().isEmpty());
}

QTEST_GUILESS_MAIN(tst_keyoutput)
#include "tst_keyoutput.moc"
