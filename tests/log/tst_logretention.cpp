#include "LogRetention.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

namespace {

bool createFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write("log line\n") == 9;
}

QDateTime createdAt(const QString& path)
{
    const QFileInfo info(path);
    return info.birthTime().isValid() ? info.birthTime() : info.metadataChangeTime();
}

} // namespace

class tst_logretention final : public QObject
{
    Q_OBJECT

private slots:
    void ageCountsMidnights_data();
    void ageCountsMidnights();
    void onlyTextFilesGo();
    void missingDirectoryIsHarmless();
    void currentTimeKeepsFreshLogs();
};

void tst_logretention::ageCountsMidnights_data()
{
    QTest::addColumn<int>("daysLater");
    QTest::addColumn<QTime>("timeOfDay");
    QTest::addColumn<bool>("removed");

    QTest::newRow("same day, last second") << 0 << QTime(23, 59, 59) << false;
    QTest::newRow("two midnights, nearly three days") << 2 << QTime(23, 59, 59) << false;
    QTest::newRow("three midnights, just past the third") << 3 << QTime(0, 0, 1) << true;
    QTest::newRow("a week later") << 7 << QTime(12, 0) << true;
}

void tst_logretention::ageCountsMidnights()
{
    QFETCH(int, daysLater);
    QFETCH(QTime, timeOfDay);
    QFETCH(bool, removed);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath("log_Tapwright_20240607.txt");
    QVERIFY(createFile(path));
    const QDateTime created = createdAt(path);
    QVERIFY(created.isValid());

    const QDateTime now(created.date().addDays(daysLater), timeOfDay);
    QVERIFY(now > created);
    purgeOldLogs(dir.path(), now);
    QCOMPARE(QFileInfo::exists(path), !removed);
}

void tst_logretention::onlyTextFilesGo()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QStringList gone { "log_Tapwright_20240101.txt", "other.txt", "UPPER.TXT", "Mixed.Txt" };
    const QStringList kept { "notes.log", "log.txt.bak", "txt", "archive.txt.gz" };
    for (const QString& name : gone + kept) {
        QVERIFY(createFile(dir.filePath(name)));
    }
    QVERIFY(QDir(dir.path()).mkdir("folder.txt"));
    QVERIFY(QDir(dir.path()).mkpath("sub/deep.txt.d"));
    QVERIFY(createFile(dir.filePath("sub/nested.txt")));

    purgeOldLogs(dir.path(), QDateTime::currentDateTime().addDays(10));

    QStringList left = QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name);
    QStringList expected = kept + QStringList { "folder.txt", "sub" };
    expected.sort();
    QCOMPARE(left, expected);
    QVERIFY(QFileInfo::exists(dir.filePath("sub/nested.txt")));
}

void tst_logretention::missingDirectoryIsHarmless()
{
    QTemporaryDir parent;
    QVERIFY(parent.isValid());
    const QString missing = parent.filePath("Log");
    purgeOldLogs(missing);
    purgeOldLogs(missing, QDateTime::currentDateTime().addDays(10));
    QVERIFY(!QFileInfo::exists(missing));
}

void tst_logretention::currentTimeKeepsFreshLogs()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath("log_Tapwright_19990101.txt");
    QVERIFY(createFile(path));
    // The name's date does not count, only when the file came to be.
    purgeOldLogs(dir.path());
    QVERIFY(QFileInfo::exists(path));
}

QTEST_GUILESS_MAIN(tst_logretention)
#include "tst_logretention.moc"
