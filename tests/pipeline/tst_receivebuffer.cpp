#include "ReceiveBuffer.h"

#include <QByteArrayList>
#include <QtTest>

#include <cstring>

namespace {

constexpr unsigned char kUntouched = 0xAA;

int writeBytes(ReceiveBuffer& buffer, const QByteArray& bytes)
{
    return buffer.write(reinterpret_cast<const unsigned char*>(bytes.constData()),
                        static_cast<unsigned int>(bytes.size()));
}

QByteArray contents(const ReceiveBuffer& buffer)
{
    QByteArray bytes(buffer.size(), '\0');
    buffer.peek(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<unsigned int>(bytes.size()));
    return bytes;
}

} // namespace

class tst_receivebuffer final : public QObject
{
    Q_OBJECT

private slots:
    void readsInOrder_data();
    void readsInOrder();
    void peekLeavesBytesInPlace();
    void clearEmptiesAndReturnsZero();
};

void tst_receivebuffer::readsInOrder_data()
{
    QTest::addColumn<QByteArrayList>("writes");
    QTest::addColumn<QList<int>>("readSizes");
    QTest::addColumn<QByteArrayList>("expectedReads");
    QTest::addColumn<QByteArray>("remaining");

    const QByteArray counting = [] {
        QByteArray bytes;
        for (int i = 0; i < 4096; ++i) {
            bytes.append(static_cast<char>(i % 251));
        }
        return bytes;
    }();

    QTest::newRow("read from empty store")
        << QByteArrayList {} << QList<int> { 8 } << QByteArrayList { "" } << QByteArray();
    QTest::newRow("read more than stored")
        << QByteArrayList { "abc" } << QList<int> { 10 } << QByteArrayList { "abc" } << QByteArray();
    QTest::newRow("read exactly what is stored")
        << QByteArrayList { "abc" } << QList<int> { 3, 1 } << QByteArrayList { "abc", "" } << QByteArray();
    QTest::newRow("order holds across reads")
        << QByteArrayList { QByteArray("\x01\x02\x03", 3) } << QList<int> { 2, 2 }
        << QByteArrayList { QByteArray("\x01\x02", 2), QByteArray("\x03", 1) } << QByteArray();
    QTest::newRow("zero bytes pass unchanged")
        << QByteArrayList { QByteArray("a\0b\0", 4), QByteArray("\0", 1) } << QList<int> { 3 }
        << QByteArrayList { QByteArray("a\0b", 3) } << QByteArray("\0\0", 2);
    QTest::newRow("empty write changes nothing")
        << QByteArrayList { "xy", "", "z" } << QList<int> { 0, 2 } << QByteArrayList { "", "xy" } << QByteArray("z");
    QTest::newRow("writes append behind stored bytes")
        << QByteArrayList { "ab", "cd", "ef" } << QList<int> { 5 } << QByteArrayList { "abcde" } << QByteArray("f");
    QTest::newRow("a full buffer drains in chunks")
        << QByteArrayList { counting } << QList<int> { 128, 128, 3840 }
        << QByteArrayList { counting.left(128), counting.mid(128, 128), counting.mid(256) } << QByteArray();
}

void tst_receivebuffer::readsInOrder()
{
    QFETCH(QByteArrayList, writes);
    QFETCH(QList<int>, readSizes);
    QFETCH(QByteArrayList, expectedReads);
    QFETCH(QByteArray, remaining);

    ReceiveBuffer buffer;
    for (const QByteArray& bytes : writes) {
        QCOMPARE(writeBytes(buffer, bytes), bytes.size());
    }

    for (int i = 0; i < readSizes.size(); ++i) {
        const int n = readSizes.at(i);
        QByteArray out(n + 4, static_cast<char>(kUntouched));
        const int taken = buffer.read(reinterpret_cast<unsigned char*>(out.data()), static_cast<unsigned int>(n));
        QCOMPARE(out.left(taken), expectedReads.at(i));
        QCOMPARE(out.mid(taken), QByteArray(out.size() - taken, static_cast<char>(kUntouched)));
    }
    QCOMPARE(buffer.size(), remaining.size());
    QCOMPARE(contents(buffer), remaining);
}

void tst_receivebuffer::peekLeavesBytesInPlace()
{
    ReceiveBuffer buffer;
    writeBytes(buffer, "hello");

    unsigned char out[8];
    std::memset(out, kUntouched, sizeof out);
    QCOMPARE(buffer.peek(out, 3), 3);
    QCOMPARE(QByteArray(reinterpret_cast<const char*>(out), 4), QByteArray("hel\xAA"));
    QCOMPARE(buffer.peek(out, sizeof out), 5);
    QCOMPARE(buffer.size(), 5);
    QCOMPARE(buffer.read(out, sizeof out), 5);
    QCOMPARE(QByteArray(reinterpret_cast<const char*>(out), 5), QByteArray("hello"));
}

void tst_receivebuffer::clearEmptiesAndReturnsZero()
{
    ReceiveBuffer buffer;
    QCOMPARE(buffer.clear(), 0);
    QCOMPARE(buffer.size(), 0);

    writeBytes(buffer, QByteArray(4096, 'x'));
    QCOMPARE(buffer.clear(), 0);
    QCOMPARE(buffer.size(), 0);

    unsigned char out[4];
    QCOMPARE(buffer.read(out, sizeof out), 0);
    writeBytes(buffer, "new");
    QCOMPARE(contents(buffer), QByteArray("new"));
}

QTEST_APPLESS_MAIN(tst_receivebuffer)
#include "tst_receivebuffer.moc"
