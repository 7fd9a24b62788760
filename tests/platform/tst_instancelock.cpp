#include "InstanceLock.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <unistd.h>

class tst_InstanceLock final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void markerLiesInTheRuntimeDirectory();
    void markerFallsBackToTheTempDirectoryWithTheUserId();
    void firstHolderTakesTheLock();
    void secondHolderInTheSameProcessFindsItTaken();
    void lockIsFreeAgainWhenTheHolderGoes();
    void lockHeldByAnotherProcessIsFound();
    void lockOfAKilledProcessIsFreed();
    void childProcessesDoNotInheritTheLock();
    void markerThatCannotBeMadeCountsAsNoOtherInstance();

private:
    // Starts flock(1) holding the marker in a process of its own until its input closes.
    void startHolder(QProcess& holder, const QString& path);

    QTemporaryDir m_runtimeDir;
    QByteArray m_savedRuntimeDir;
};

void tst_InstanceLock::init()
{
    QVERIFY(m_runtimeDir.isValid());
    m_savedRuntimeDir = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtimeDir.path()));
}

void tst_InstanceLock::cleanup()
{
    qputenv("XDG_RUNTIME_DIR", m_savedRuntimeDir);
}

void tst_InstanceLock::startHolder(QProcess& holder, const QString& path)
{
    // -o keeps the lock with flock itself, so killing flock is what frees it.
    holder.start(QStringLiteral("flock"),
                 { QStringLiteral("-n"),
                   QStringLiteral("-o"),
                   path,
                   QStringLiteral("-c"),
                   QStringLiteral("echo held; read line") });
    QVERIFY2(holder.waitForStarted(5000), qPrintable(holder.errorString()));
    QTRY_VERIFY_WITH_TIMEOUT(holder.canReadLine() || holder.state() == QProcess::NotRunning, 5000);
    QCOMPARE(holder.readLine().trimmed(), QByteArray("held"));
}

void tst_InstanceLock::markerLiesInTheRuntimeDirectory()
{
    QCOMPARE(InstanceLock::markerPath(QStringLiteral("Tapwright")), m_runtimeDir.path() + "/Tapwright.lock");

    const InstanceLock lock(QStringLiteral("Tapwright"));
    QVERIFY(QFileInfo::exists(m_runtimeDir.path() + "/Tapwright.lock"));
}

void tst_InstanceLock::markerFallsBackToTheTempDirectoryWithTheUserId()
{
    qunsetenv("XDG_RUNTIME_DIR");
    const QString expected = QDir::tempPath() + "/Tapwright-" + QString::number(getuid()) + ".lock";
    QCOMPARE(InstanceLock::markerPath(QStringLiteral("Tapwright")), expected);

    const InstanceLock lock(QStringLiteral("Tapwright"));
    QVERIFY(lock.isHeld());
    QVERIFY(QFileInfo::exists(expected));
    QFile::remove(expected);
}

void tst_InstanceLock::firstHolderTakesTheLock()
{
    const InstanceLock lock(QStringLiteral("Tapwright"));
    QVERIFY(!lock.alreadyExists());
    QVERIFY(lock.isHeld());
}

void tst_InstanceLock::secondHolderInTheSameProcessFindsItTaken()
{
    const InstanceLock first(QStringLiteral("Tapwright"));
    const InstanceLock second(QStringLiteral("Tapwright"));
    QVERIFY(first.isHeld());
    QVERIFY(second.alreadyExists());
    QVERIFY(!second.isHeld());

    // Another name is another marker.
    const InstanceLock other(QStringLiteral("Other"));
    QVERIFY(!other.alreadyExists());
}

void tst_InstanceLock::lockIsFreeAgainWhenTheHolderGoes()
{
    {
        const InstanceLock first(QStringLiteral("Tapwright"));
        QVERIFY(first.isHeld());
    }
    const InstanceLock next(QStringLiteral("Tapwright"));
    QVERIFY(!next.alreadyExists());
    QVERIFY(next.isHeld());
}

void tst_InstanceLock::lockHeldByAnotherProcessIsFound()
{
    QProcess holder;
    startHolder(holder, InstanceLock::markerPath(QStringLiteral("Tapwright")));

    const InstanceLock lock(QStringLiteral("Tapwright"));
    QVERIFY(lock.alreadyExists());
    QVERIFY(!lock.isHeld());

    holder.closeWriteChannel();
    QVERIFY(holder.waitForFinished(5000));
    const InstanceLock after(QStringLiteral("Tapwright"));
    QVERIFY(!after.alreadyExists());
}

void tst_InstanceLock::lockOfAKilledProcessIsFreed()
{
    QProcess holder;
    startHolder(holder, InstanceLock::markerPath(QStringLiteral("Tapwright")));
    QVERIFY(InstanceLock(QStringLiteral("Tapwright")).alreadyExists());

    holder.kill();
    QVERIFY(holder.waitForFinished(5000));
    QTRY_VERIFY_WITH_TIMEOUT(!InstanceLock(QStringLiteral("Tapwright")).alreadyExists(), 5000);
    QVERIFY(InstanceLock(QStringLiteral("Tapwright")).isHeld());
}

void tst_InstanceLock::childProcessesDoNotInheritTheLock()
{
    QProcess child;
    {
        const InstanceLock lock(QStringLiteral("Tapwright"));
        QVERIFY(lock.isHeld());
        child.start(QStringLiteral("cat"), QStringList());
        QVERIFY(child.waitForStarted(5000));
    }
    // The child outlives the holder; the marker must not stay taken through it.
    QCOMPARE(child.state(), QProcess::Running);
    const InstanceLock next(QStringLiteral("Tapwright"));
    QVERIFY(!next.alreadyExists());

    child.closeWriteChannel();
    QVERIFY(child.waitForFinished(5000));
}

void tst_InstanceLock::markerThatCannotBeMadeCountsAsNoOtherInstance()
{
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtimeDir.path() + "/missing/dir"));
    const InstanceLock first(QStringLiteral("Tapwright"));
    const InstanceLock second(QStringLiteral("Tapwright"));
    QVERIFY(!first.alreadyExists());
    QVERIFY(!second.alreadyExists());
    QVERIFY(!first.isHeld());
}

QTEST_GUILESS_MAIN(tst_InstanceLock)
#include "tst_instancelock.moc"
