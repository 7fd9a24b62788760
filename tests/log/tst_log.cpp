#include "LogRetention.h"
#include "Logger.h"

#include <QtTest>
#include <thread>

// The log lives as long as its process, so this runs in a fresh copy of the test program.
[[noreturn]] static void writeLog(const std::string& path)
{
    bool (*const plain[])(const std::string&)
        = { Logger::fatal, Logger::error, Logger::warn, Logger::info, Logger::debug };
    bool (*const formatted[])(const char*, ...)
        = { Logger::fatal, Logger::error, Logger::warn, Logger::info, Logger::debug };
    Logger::info(std::string("before open"));
    // What the calls answer, in order, goes into the log last.
    std::string told { char('0' + Logger::open(path)), char('0' + Logger::open("other.txt")) };
    for (int level = LOG_FATAL; level <= LOG_DEBUG; ++level)
        told += char('0' + formatted[level]("%d!", level));
    Logger::setLevel(LOG_DEBUG);
    for (int level = LOG_FATAL; level <= LOG_DEBUG; ++level)
        told += char('0' + plain[level](std::to_string(level) + "% %s"));
    Logger::info(std::string(600, 'x'));
    Logger::info("%s", std::string(600, 'y').c_str());
    told += { char('0' + Logger::beginScope("")), char('0' + Logger::beginScope("outer")) };
    Logger::beginScope("inner");
    Logger::writeStackTrace();
    while (!Logger::endScope().empty()) { }
    const auto writeLines = [](char c) {
        for (int i = 0; i < 300; ++i)
            Logger::info(std::string(200, c) + std::to_string(i));
    };
    std::thread other(writeLines, 'B');
    writeLines('A');
    other.join();
    QFile file(QString::fromStdString(path)); // each line is on disk before the call returns
    told += char('0' + (file.open(QIODevice::ReadOnly) && file.readAll().endsWith("299\n")));
    Logger::info("%s", ("got " + told).c_str());
    std::getchar(); // the parent reads the console first: each line is there before its call returns
    std::exit(0);
}

class tst_log final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

public:
    tst_log()
    {
        // A copy started with "--log <path>" writes that log and ends there.
        if (QCoreApplication::arguments().value(1) == "--log")
            writeLog(QCoreApplication::arguments().value(2).toStdString());
        // One started with "--full-disk" in a full tmpfs of its own opens its log, frees space and writes.
        if (QCoreApplication::arguments().value(1) == "--full-disk")
            std::exit(Logger::open("log") && QFile::remove("filler") && Logger::info("space again") ? 0 : 1);
        // Copies run under German, where "%X %x" reads "14:03:07 21.06.24"; the log must not follow.
        QProcess::execute("localedef", { "-i", "de_DE", "-f", "UTF-8", m_dir.filePath("de_DE.UTF-8") });
        qputenv("LOCPATH", QFile::encodeName(m_dir.path()));
        qputenv("LC_ALL", "de_DE.UTF-8");
    }

private slots:
    void linesGoToConsoleAndFile()
    {
        QTemporaryFile log;
        QVERIFY(log.open() && log.write("earlier run\n") == 12 && log.flush());
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), { "--log", log.fileName() });
        QByteArray out;
        QTRY_VERIFY((out += child.readAllStandardOutput()).contains("got "));
        child.closeWriteChannel();
        QVERIFY(child.waitForFinished() && child.exitCode() == 0);

        // Each line without its time stamp, in the C locale's form; sorted, as threads mix their lines.
        const auto unstamped = [](const QByteArray& text) {
            static const QRegularExpression stamp(R"((?m)^\[\d\d:\d\d:\d\d \d\d/\d\d/\d\d\] )");
            QByteArrayList lines = QString::fromUtf8(text).remove(stamp).toUtf8().split('\n');
            std::sort(lines.begin(), lines.end());
            return lines;
        };
        // Debug is below the first threshold; text is cut to 511 bytes a line.
        QByteArray lines = "INFO  - LOG INITIALISED\nFATAL - 0!\nERROR - 1!\nWARN  - 2!\nINFO  - 3!\nFATAL - 0% %s\n"
                           "ERROR - 1% %s\nWARN  - 2% %s\nINFO  - 3% %s\nDEBUG - 4% %s\nDEBUG - outer BEGIN\n"
                           "DEBUG - inner BEGIN\n---Stack Trace---\n| outer\n| inner\n-----------------\n"
                           "DEBUG - inner END\nDEBUG - outer END\nINFO  - got 101111011111011\nINFO  - LOG FINALISED\n";
        lines += "INFO  - " + QByteArray(483, 'x') + "\nINFO  - " + QByteArray(483, 'y') + '\n';
        for (int i = 0; i < 600; ++i)
            lines += "INFO  - " + QByteArray(200, "AB"[i / 300]) + QByteArray::number(i % 300) + '\n';
        QCOMPARE(unstamped(log.readAll()), unstamped(lines));
        QCOMPARE(unstamped(out + child.readAllStandardOutput()), unstamped("INFO  - before open\n" + lines));
    }

    // Lines that find the disk full are lost; the first once space is back is written, on a line of its own.
    void logWritesAgainOnceTheDiskHasSpace()
    {
        const QString script = "mount -t tmpfs -o size=16k tmpfs \"$1\" && cd \"$1\" && head -c 16k /dev/zero >filler; "
                               "\"$0\" --full-disk 2>&1 >/dev/null; cut -d' ' -f3- log"; // the log without time stamps
        QProcess child;
        child.start("unshare", { "-r", "-m", "sh", "-c", script, qApp->applicationFilePath(), m_dir.path() });
        QVERIFY(child.waitForFinished());
        QCOMPARE(child.readAll(),
                 "tapwright: the log file log cannot be written; its lines are lost until it can.\n"
                 "\nINFO  - space again\nINFO  - LOG FINALISED\n");
    }

    void oldTextFilesGo()
    {
        QTemporaryDir dir;
        for (const char* name : { "UPPER.TXT", "log.txt", "notes.log" })
            QVERIFY(QFile(dir.filePath(name)).open(QIODevice::WriteOnly));
        // The age counts the midnights passed since the file was made.
        const QDate made = QFileInfo(dir.filePath("log.txt")).lastModified().date();
        purgeOldLogs(dir.path(), QDateTime(made.addDays(2), QTime(23, 59, 59)));
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files).join(' '), QString("log.txt notes.log UPPER.TXT"));
        purgeOldLogs(dir.path(), QDateTime(made.addDays(3), QTime(0, 0, 1)));
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files).join(' '), QString("notes.log"));
    }
};

QTEST_GUILESS_MAIN(tst_log)
#include "tst_log.moc"
