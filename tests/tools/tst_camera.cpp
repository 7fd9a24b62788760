// The camera simulator, run the way the tests, the benchmarks and the demo run it.
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

class tst_Camera final : public QObject
{
    Q_OBJECT

private slots:
    void sends_data()
    {
        // "@" stands for the test's server; output is what the server got, or part of the error text.
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        QTest::newRow("frames") << QStringList { "--connect", "@", "--rate", "0", "--repeat", "2", "P{seq}", "Q" } << 0
                                << "[P000001][Q][P000003][Q]";
        QTest::newRow("escapes") << QStringList { "--connect", "@",       "--start", "\\x02",    "--end",
                                                  "\\r\\n",    "--chunk", "2",       "z\\tb\\\\" }
                                 << 0 << "\x02z\tb\\\r\n";
        QTest::newRow("nobody listens") << QStringList { "--connect", "127.0.0.1:1", "A" } << 1 << "cannot connect";
        QTest::newRow("no role") << QStringList { "A" } << 2 << "exactly one of --connect";
        QTest::newRow("bad escape") << QStringList { "--listen", "0", "A\\q" } << 2 << "unknown escape \\q";
    }

    void sends()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, output);
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QProcess camera;
        camera.start(TAPWRIGHT_CAMERA_PATH,
                     arguments.replaceInStrings("@", QString("127.0.0.1:%1").arg(server.serverPort())));
        QVERIFY(camera.waitForFinished(10000));
        QTEST(camera.exitCode(), "exitCode");
        if (camera.exitCode() != 0) {
            QVERIFY2(QString(camera.readAllStandardError()).contains(output), qPrintable(output));
            return;
        }
        QVERIFY(server.waitForNewConnection(10000));
        QTcpSocket* link = server.nextPendingConnection();
        QString got;
        QTRY_COMPARE_WITH_TIMEOUT(got += QString::fromLatin1(link->readAll()), output, 10000);
    }
};

QTEST_GUILESS_MAIN(tst_Camera)
#include "tst_camera.moc"
