#include "LocalIPv4.h"

#include <QHostAddress>
#include <QList>
#include <QStringList>
#include <QtTest>

namespace {

QList<QHostAddress> addresses(const QStringList& texts)
{
    QList<QHostAddress> list;
    for (const QString& text : texts) {
        list.append(QHostAddress(text));
    }
    return list;
}

} // namespace

class tst_localipv4 final : public QObject
{
    Q_OBJECT

private slots:
    void choosesListenAddress_data();
    void choosesListenAddress();
};

void tst_localipv4::choosesListenAddress_data()
{
    QTest::addColumn<QStringList>("hostAddresses");
    QTest::addColumn<QStringList>("interfaceAddresses");
    QTest::addColumn<QString>("expected");

    QTest::newRow("both lists empty") << QStringList() << QStringList() << QString();
    QTest::newRow("host name has no address, interfaces ignored")
        << QStringList() << QStringList { "10.0.0.2" } << QString();
    QTest::newRow("routable host address wins over interfaces")
        << QStringList { "192.168.1.5" } << QStringList { "10.0.0.2" } << "192.168.1.5";
    QTest::newRow("Debian's 127.0.1.1 gives way to the interface")
        << QStringList { "127.0.1.1" } << QStringList { "10.0.0.2", "172.16.0.9" } << "10.0.0.2";
    QTest::newRow("loopback kept when no interface has IPv4")
        << QStringList { "127.0.1.1" } << QStringList { "fe80::2" } << "127.0.1.1";
    QTest::newRow("loopback kept when there are no interfaces")
        << QStringList { "127.0.0.1" } << QStringList() << "127.0.0.1";
    QTest::newRow("IPv6 skipped on both sides") << QStringList { "::1", "fe80::1", "127.0.1.1" }
                                                << QStringList { "fe80::2", "2001:db8::7", "10.0.0.2" } << "10.0.0.2";
    QTest::newRow("only IPv6 for the host name")
        << QStringList { "::1", "2001:db8::1" } << QStringList { "10.0.0.2" } << QString();
    QTest::newRow("first IPv4 decides, a later routable one does not count")
        << QStringList { "127.0.1.1", "192.168.1.5" } << QStringList { "10.0.0.2" } << "10.0.0.2";
    QTest::newRow("first IPv4 routable, a later loopback does not count")
        << QStringList { "192.168.1.5", "127.0.1.1" } << QStringList { "10.0.0.2" } << "192.168.1.5";
    QTest::newRow("loopback among interface addresses skipped")
        << QStringList { "127.0.1.1" } << QStringList { "127.0.0.1", "10.0.0.2" } << "10.0.0.2";
}

void tst_localipv4::choosesListenAddress()
{
    QFETCH(QStringList, hostAddresses);
    QFETCH(QStringList, interfaceAddresses);
    QFETCH(QString, expected);

    const QHostAddress chosen = chooseLocalIPv4(addresses(hostAddresses), addresses(interfaceAddresses));

    QCOMPARE(chosen.isNull(), expected.isEmpty());
    if (!expected.isEmpty()) {
        QCOMPARE(chosen, QHostAddress(expected));
    }
}

QTEST_GUILESS_MAIN(tst_localipv4)
#include "tst_localipv4.moc"
