#include "Logger.h"
#include "StdoutCapture.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>
#include <functional>
#include <thread>
#include <vector>

namespace {

constexpr int kLineLimit = 511;
const QString kStampPattern = R"(\[\d\d:\d\d:\d\d \d\d/\d\d/\d\d\] )";

QByteArrayList linesOf(const QByteArray& text)
{
    QByteArrayList lines = text.split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty()) {
        lines.removeLast();
    }
    return lines;
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The line as written, without its time stamp, or the line itself when it has none.
QByteArray unstamped(const QByteArray& line)
{
    static const QRegularExpression stamp("^" + kStampPattern);
    const QRegularExpressionMatch match = stamp.match(QString::fromUtf8(line));
    return match.hasMatch() ? line.mid(match.capturedLength()) : line;
}

QByteArrayList unstamped(const QByteArrayList& lines)
{
    QByteArrayList result;
    for (const QByteArray& line : lines) {
        result.append(unstamped(line));
    }
    return result;
}

// Scenarios that need a logger of their own run in a child copy of this test program.
int runScenario(const QString& name, const QString& path, const QString& otherPath)
{
    if (name == "orderly-exit") {
        Logger::open(path.toStdString());
        Logger::setLevel(LOG_DEBUG);
        Logger::info("child ran");
        return 0;
    }
    if (name == "write-before-open") {
        Logger::info("before open");
        Logger::open(path.toStdString());
        return 0;
    }
    if (name == "open-twice") {
        const bool first = Logger::open(path.toStdString());
        const bool second = Logger::open(otherPath.toStdString());
        Logger::info("after the second open");
        return first && !second ? 0 : 1;
    }
    if (name == "missing-directory") {
        const bool opened = Logger::open(path.toStdString());
        Logger::info("console only");
        return opened ? 0 : 1;
    }
    return 2;
}

} // namespace

class tst_logger final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void thresholdSelectsLevels_data();
    void thresholdSelectsLevels();
    void levelNames_data();
    void levelNames();
    void lineCarriesLocalTime();
    void timeTextIgnoresTheUserLocale();
    void messageIsNotAFormat();
    void formattedOverloadsFormat();
    void longTextIsCut_data();
    void longTextIsCut();
    void scopesNestAndTrace();
    void scopesBelowThresholdWriteNothing();
    void emptyStackTrace();
    void linesFromThreadsStayWhole();

    void orderlyExitWritesTheLastLine();
    void writeBeforeOpenReachesOnlyStandardOutput();
    void secondOpenKeepsTheFirstFile();
    void missingDirectoryLeavesConsoleOutput();

private:
    // Runs action with standard output captured; gives the lines it added to stdout and to the file.
    void capture(const std::function<void()>& action, QByteArrayList* stdoutLines, QByteArrayList* fileLines);
    QProcess* runChild(const QString& scenario, const QString& path, const QString& otherPath = {});

    QTemporaryDir m_dir;
    QString m_path;
};

void tst_logger::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_path = m_dir.filePath("log_test.txt");
    QByteArrayList out;
    QByteArrayList file;
    capture([this] { QVERIFY(Logger::open(m_path.toStdString())); }, &out, &file);
    QCOMPARE(unstamped(file), QByteArrayList { "INFO  - LOG INITIALISED" });
    QCOMPARE(out, file);
}

void tst_logger::init()
{
    Logger::setLevel(LOG_INFO);
}

void tst_logger::capture(const std::function<void()>& action, QByteArrayList* stdoutLines, QByteArrayList* fileLines)
{
    const qint64 mark = QFileInfo(m_path).size();
    StdoutCapture capture;
    QVERIFY(capture.isCapturing());
    action();
    *stdoutLines = linesOf(capture.finish());
    *fileLines = linesOf(readFile(m_path).mid(mark));
}

void tst_logger::thresholdSelectsLevels_data()
{
    QTest::addColumn<int>("threshold");
    QTest::addColumn<QByteArrayList>("written");

    QTest::newRow("fatal only") << int(LOG_FATAL) << QByteArrayList { "FATAL - f" };
    QTest::newRow("up to warn") << int(LOG_WARN) << QByteArrayList { "FATAL - f", "ERROR - e", "WARN  - w" };
    QTest::newRow("initial level drops debug")
        << int(LOG_INFO) << QByteArrayList { "FATAL - f", "ERROR - e", "WARN  - w", "INFO  - i" };
    QTest::newRow("debug lets all pass") << int(
        LOG_DEBUG) << QByteArrayList { "FATAL - f", "ERROR - e", "WARN  - w", "INFO  - i", "DEBUG - d" };
}

void tst_logger::thresholdSelectsLevels()
{
    QFETCH(int, threshold);
    QFETCH(QByteArrayList, written);

    Logger::setLevel(static_cast<LogLevel>(threshold));
    QList<bool> results;
    QByteArrayList out;
    QByteArrayList file;
    capture(
        [&] {
            results << Logger::fatal(std::string("f")) << Logger::error(std::string("e"))
                    << Logger::warn(std::string("w")) << Logger::info(std::string("i"))
                    << Logger::debug(std::string("d"));
        },
        &out,
        &file);

    QList<bool> expectedResults;
    for (int level = LOG_FATAL; level <= LOG_DEBUG; ++level) {
        expectedResults << (level <= threshold);
    }
    QCOMPARE(results, expectedResults);
    QCOMPARE(unstamped(file), written);
    QCOMPARE(out, file);
}

void tst_logger::levelNames_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("name");

    QTest::newRow("fatal") << int(LOG_FATAL) << "FATAL";
    QTest::newRow("error") << int(LOG_ERROR) << "ERROR";
    QTest::newRow("warn") << int(LOG_WARN) << "WARN ";
    QTest::newRow("info") << int(LOG_INFO) << "INFO ";
    QTest::newRow("debug") << int(LOG_DEBUG) << "DEBUG";
    QTest::newRow("below the range") << -1 << "UNKWN";
    QTest::newRow("above the range") << 5 << "UNKWN";
}

void tst_logger::levelNames()
{
    QFETCH(int, level);
    QFETCH(QString, name);
    QCOMPARE(QString(Logger::levelName(static_cast<LogLevel>(level))), name);
}

void tst_logger::lineCarriesLocalTime()
{
    QString before;
    QString after;
    QByteArrayList out;
    QByteArrayList file;
    capture(
        [&] {
            before = QDateTime::currentDateTime().toString("hh:mm:ss MM/dd/yy");
            QVERIFY(Logger::info(std::string("stamped")));
            after = QDateTime::currentDateTime().toString("hh:mm:ss MM/dd/yy");
        },
        &out,
        &file);

    QCOMPARE(file.size(), 1);
    const QString line = QString::fromUtf8(file.first());
    QVERIFY2(line == "[" + before + "] INFO  - stamped" || line == "[" + after + "] INFO  - stamped", qPrintable(line));
    QCOMPARE(out, file);
}

void tst_logger::timeTextIgnoresTheUserLocale()
{
    QTemporaryDir locales;
    QVERIFY(locales.isValid());
    QProcess localedef;
    localedef.start("localedef", { "-i", "de_DE", "-f", "UTF-8", locales.filePath("de_DE.UTF-8") });
    if (!localedef.waitForFinished(60000) || localedef.exitCode() != 0) {
        QSKIP("cannot build a German locale here");
    }

    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LOCPATH", locales.path());
    environment.insert("LC_ALL", "de_DE.UTF-8");
    child.setProcessEnvironment(environment);
    const QString path = m_dir.filePath("german.txt");
    child.start(QCoreApplication::applicationFilePath(), { "--scenario", "orderly-exit", path });
    QVERIFY(child.waitForFinished(30000));
    QCOMPARE(child.exitCode(), 0);

    const QByteArrayList lines = linesOf(readFile(path));
    QCOMPARE(lines.size(), 3);
    const QRegularExpression cLocaleLine("^" + kStampPattern + "INFO  - child ran$");
    QVERIFY2(cLocaleLine.match(QString::fromUtf8(lines.at(1))).hasMatch(), lines.at(1).constData());
}

void tst_logger::messageIsNotAFormat()
{
    QByteArrayList out;
    QByteArrayList file;
    capture([] { QVERIFY(Logger::info(std::string("100% %s %d %n done"))); }, &out, &file);
    QCOMPARE(unstamped(file), QByteArrayList { "INFO  - 100% %s %d %n done" });
    QCOMPARE(out, file);
}

void tst_logger::formattedOverloadsFormat()
{
    Logger::setLevel(LOG_DEBUG);
    QByteArrayList out;
    QByteArrayList file;
    capture(
        [] {
            QVERIFY(Logger::fatal("%d-%s", 1, "a"));
            QVERIFY(Logger::error("%05.2f", 2.5));
            QVERIFY(Logger::warn("%c%c", 'o', 'k'));
            QVERIFY(Logger::info("%s", "%d stays"));
            QVERIFY(Logger::debug("%x", 255u));
        },
        &out,
        &file);
    QCOMPARE(unstamped(file),
             (QByteArrayList { "FATAL - 1-a", "ERROR - 02.50", "WARN  - ok", "INFO  - %d stays", "DEBUG - ff" }));
    QCOMPARE(out, file);

    Logger::setLevel(LOG_ERROR);
    capture([] { QVERIFY(!Logger::warn("%d", 3)); }, &out, &file);
    QVERIFY(file.isEmpty());
    QVERIFY(out.isEmpty());
}

void tst_logger::longTextIsCut_data()
{
    QTest::addColumn<bool>("formatted");
    QTest::newRow("plain message") << false;
    QTest::newRow("formatted message") << true;
}

void tst_logger::longTextIsCut()
{
    QFETCH(bool, formatted);

    std::string message;
    for (int i = 0; i < 600; ++i) {
        message += static_cast<char>('a' + i % 26);
    }
    QByteArrayList out;
    QByteArrayList file;
    capture(
        [&] {
            const bool written = formatted ? Logger::info("%s", message.c_str()) : Logger::info(message);
            QVERIFY(written);
        },
        &out,
        &file);

    QCOMPARE(file.size(), 1);
    QCOMPARE(file.first().size(), kLineLimit);
    const QByteArray text = unstamped(file.first());
    QCOMPARE(text, "INFO  - " + QByteArray::fromStdString(message).left(kLineLimit - 28));
    QCOMPARE(out, file);
}

void tst_logger::scopesNestAndTrace()
{
    Logger::setLevel(LOG_DEBUG);
    QByteArrayList out;
    QByteArrayList file;
    capture(
        [] {
            QVERIFY(!Logger::beginScope(""));
            QVERIFY(Logger::beginScope("outer"));
            QVERIFY(Logger::beginScope("inner"));
            QCOMPARE(Logger::currentScope(), std::string("inner"));
            Logger::writeStackTrace();
            QCOMPARE(Logger::endScope(), std::string("inner"));
            QCOMPARE(Logger::currentScope(), std::string("outer"));
            QCOMPARE(Logger::endScope(), std::string("outer"));
            QCOMPARE(Logger::endScope(), std::string());
        },
        &out,
        &file);

    // The trace has no time stamp and no level.
    QCOMPARE(unstamped(file),
             (QByteArrayList { "DEBUG - outer BEGIN",
                               "DEBUG - inner BEGIN",
                               "---Stack Trace---",
                               "| outer",
                               "| inner",
                               "-----------------",
                               "DEBUG - inner END",
                               "DEBUG - outer END" }));
    QVERIFY(!file.at(2).startsWith('['));
    QCOMPARE(out, file);
}

void tst_logger::scopesBelowThresholdWriteNothing()
{
    QByteArrayList out;
    QByteArrayList file;
    capture(
        [] {
            QVERIFY(Logger::beginScope("quiet"));
            QCOMPARE(Logger::currentScope(), std::string("quiet"));
            QCOMPARE(Logger::endScope(), std::string("quiet"));
        },
        &out,
        &file);
    QVERIFY(file.isEmpty());
    QVERIFY(out.isEmpty());
}

void tst_logger::emptyStackTrace()
{
    Logger::setLevel(LOG_FATAL);
    QByteArrayList out;
    QByteArrayList file;
    capture([] { Logger::writeStackTrace(); }, &out, &file);
    QCOMPARE(file, (QByteArrayList { "---Stack Trace---", "-----------------" }));
    QCOMPARE(out, file);
}

void tst_logger::linesFromThreadsStayWhole()
{
    constexpr int kThreads = 4;
    constexpr int kLinesPerThread = 400;
    QByteArrayList out;
    QByteArrayList file;
    capture(
        [] {
            std::vector<std::thread> writers;
            for (int t = 0; t < kThreads; ++t) {
                writers.emplace_back([t] {
                    const std::string body(200, static_cast<char>('A' + t));
                    for (int i = 0; i < kLinesPerThread; ++i) {
                        Logger::info(body + " " + std::to_string(i));
                    }
                });
            }
            for (std::thread& writer : writers) {
                writer.join();
            }
        },
        &out,
        &file);

    QCOMPARE(file.size(), kThreads * kLinesPerThread);
    QCOMPARE(out.size(), kThreads * kLinesPerThread);
    QVector<int> nextOfThread(kThreads, 0);
    const QRegularExpression whole("^INFO  - ([A-D])\\1{199} (\\d+)$");
    for (const QByteArray& line : unstamped(file)) {
        const QRegularExpressionMatch match = whole.match(QString::fromUtf8(line));
        QVERIFY2(match.hasMatch(), line.constData());
        const int thread = match.captured(1).at(0).toLatin1() - 'A';
        QCOMPARE(match.captured(2).toInt(), nextOfThread[thread]++);
    }
    QCOMPARE(unstamped(out), unstamped(file));
}

QProcess* tst_logger::runChild(const QString& scenario, const QString& path, const QString& otherPath)
{
    auto* child = new QProcess(this);
    child->start(QCoreApplication::applicationFilePath(), { "--scenario", scenario, path, otherPath });
    child->waitForFinished(30000);
    return child;
}

void tst_logger::orderlyExitWritesTheLastLine()
{
    const QString path = m_dir.filePath("exit.txt");
    for (int run = 0; run < 2; ++run) {
        QProcess* child = runChild("orderly-exit", path);
        QCOMPARE(child->exitStatus(), QProcess::NormalExit);
        QCOMPARE(child->exitCode(), 0);
        QCOMPARE(linesOf(child->readAllStandardOutput()), linesOf(readFile(path)).mid(3 * run));
    }
    const QByteArrayList oneRun { "INFO  - LOG INITIALISED", "INFO  - child ran", "INFO  - LOG FINALISED" };
    QCOMPARE(unstamped(linesOf(readFile(path))), oneRun + oneRun);
}

void tst_logger::writeBeforeOpenReachesOnlyStandardOutput()
{
    const QString path = m_dir.filePath("late.txt");
    QProcess* child = runChild("write-before-open", path);
    QCOMPARE(child->exitCode(), 0);
    QCOMPARE(unstamped(linesOf(child->readAllStandardOutput())),
             (QByteArrayList { "INFO  - before open", "INFO  - LOG INITIALISED", "INFO  - LOG FINALISED" }));
    QCOMPARE(unstamped(linesOf(readFile(path))),
             (QByteArrayList { "INFO  - LOG INITIALISED", "INFO  - LOG FINALISED" }));
}

void tst_logger::secondOpenKeepsTheFirstFile()
{
    const QString first = m_dir.filePath("first.txt");
    const QString second = m_dir.filePath("second.txt");
    QProcess* child = runChild("open-twice", first, second);
    QCOMPARE(child->exitCode(), 0);
    QVERIFY(!QFileInfo::exists(second));
    QCOMPARE(unstamped(linesOf(readFile(first))),
             (QByteArrayList { "INFO  - LOG INITIALISED", "INFO  - after the second open", "INFO  - LOG FINALISED" }));
}

void tst_logger::missingDirectoryLeavesConsoleOutput()
{
    const QString path = m_dir.filePath("absent/log.txt");
    QProcess* child = runChild("missing-directory", path);
    QCOMPARE(child->exitCode(), 0);
    QCOMPARE(unstamped(linesOf(child->readAllStandardOutput())),
             (QByteArrayList { "INFO  - LOG INITIALISED", "INFO  - console only", "INFO  - LOG FINALISED" }));
    QVERIFY(!QFileInfo::exists(m_dir.filePath("absent")));
}

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (argc >= 4 && QByteArray(argv[1]) == "--scenario") {
        return runScenario(argv[2], argv[3], argc >= 5 ? QString(argv[4]) : QString());
    }
    tst_logger test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_logger.moc"
