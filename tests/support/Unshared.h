#pragma once

#include <QtTest>

// Runs the calling test, or row, again in namespaces of its own (unshare's options), where root may
// mount and bring links up without touching the machine. The child runs the shell command "setup"
// first and sees TAPWRIGHT_UNSHARED in its environment.
namespace Unshared {

inline bool inside()
{
    return !qEnvironmentVariableIsEmpty("TAPWRIGHT_UNSHARED");
}

inline void rerun(const QStringList& options, const QString& setup = "true")
{
    QTemporaryDir scratch; // the child's own log and temporary files
    QProcess child;
    child.setProcessChannelMode(QProcess::MergedChannels);
    const QString row = QTest::currentDataTag() ? QString(":") + QTest::currentDataTag() : QString();
    const QStringList environment { "env", "TAPWRIGHT_UNSHARED=1", "TMPDIR=" + scratch.path() };
    const QStringList script { "sh", "-c", setup + " && exec \"$0\" \"$1\"", QCoreApplication::applicationFilePath() };
    child.start("unshare", options + environment + script + QStringList { QTest::currentTestFunction() + row });
    QVERIFY(child.waitForFinished(60000));
    const QByteArray output = child.readAll();
    // unshare itself says when this machine cannot make such namespaces.
    if (output.contains("SKIP   :") || output.startsWith("unshare:"))
        QSKIP(output.constData());
    QVERIFY2(child.exitCode() == 0 && output.contains("Totals: 3 passed"), output.constData());
}

} // namespace Unshared
