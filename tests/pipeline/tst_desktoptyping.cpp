#include "DataThread.h"

#include <QPlainTextEdit>
#include <QProcess>
#include <QTemporaryDir>
#include <QVBoxLayout>
#include <QWidget>
#include <QtTest>
#include <memory>

namespace {

constexpr int kWaitMs = 20000;
constexpr int kBlocks = 24;

// Printable ASCII without '<', so that no chord is ever left open at a chunk's end.
QByteArray asciiWithoutOpenBracket()
{
    QByteArray bytes;
    for (char c = 0x20; c <= 0x7E; ++c) {
        if (c != '<') {
            bytes.append(c);
        }
    }
    return bytes;
}

struct Stream
{
    QByteArray bytes;
    QString expected;
};

// Blocks of exactly one worker read each: a line of shifted symbols, Latin-1 letters, a chord
// that selects the character in front of it (so the next one replaces it), two arrows that
// cancel out, and CR LF.
Stream makeStream()
{
    const QByteArray ascii = asciiWithoutOpenBracket();
    Stream stream;
    for (int block = 0; block < kBlocks; ++block) {
        QByteArray line = QByteArray::number(block).rightJustified(2, '0') + ":";
        QString shown = QString::fromLatin1(line);
        for (int i = 0; i < 60; ++i) {
            const char c = ascii.at((block * 7 + i) % ascii.size());
            line.append(c);
            shown.append(QLatin1Char(c));
        }
        line.append("\xE9\xFC\xDF\xA7");
        shown.append(QString::fromLatin1("\xE9\xFC\xDF\xA7"));
        line.append("Q<VK_SHIFT+VK_LEFT>Z<VK_LEFT><VK_RIGHT>");
        shown.append("Z");
        const int padding = DataThread::kChunkSize - 2 - line.size();
        line.append(QByteArray(padding, '.'));
        shown.append(QString(padding, '.'));
        line.append("\r\n");
        shown.append("\n");
        stream.bytes += line;
        stream.expected += shown;
    }
    return stream;
}

} // namespace

class tst_desktoptyping final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cleanupTestCase();

    void typesStreamIntoFocusedWidget_data();
    void typesStreamIntoFocusedWidget();

private:
    static bool setLayout(const QString& layout);

    std::unique_ptr<QWidget> m_window;
    QPlainTextEdit* m_edit = nullptr;
};

bool tst_desktoptyping::setLayout(const QString& layout)
{
    return QProcess::execute("setxkbmap", { "-display", qEnvironmentVariable("DISPLAY"), layout }) == 0;
}

void tst_desktoptyping::init()
{
    m_window = std::make_unique<QWidget>();
    auto* layout = new QVBoxLayout(m_window.get());
    m_edit = new QPlainTextEdit(m_window.get());
    layout->addWidget(m_edit);
    m_window->resize(900, 700);
    m_window->show();
    m_window->activateWindow();
    m_edit->setFocus();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    QTRY_VERIFY_WITH_TIMEOUT(m_edit->hasFocus(), kWaitMs);
}

void tst_desktoptyping::cleanup()
{
    m_window.reset();
    m_edit = nullptr;
}

void tst_desktoptyping::cleanupTestCase()
{
    setLayout("us");
}

void tst_desktoptyping::typesStreamIntoFocusedWidget_data()
{
    QTest::addColumn<QString>("layout");
    QTest::newRow("us") << "us";
    QTest::newRow("de") << "de";
}

void tst_desktoptyping::typesStreamIntoFocusedWidget()
{
    QFETCH(QString, layout);
    QVERIFY(setLayout(layout));
    const Stream stream = makeStream();
    QVERIFY(stream.bytes.size() >= 2000 && stream.bytes.size() <= DataThread::kBufferLimit);

    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    DataThread worker;
    worker.setKeyOutput(true);
    worker.setStartEndChar("#", "$");
    worker.setFileDir(frames.path());
    worker.startThread();
    // One push, so the worker cuts it into its chunks exactly at the block borders.
    worker.pushData(stream.bytes.constData(), stream.bytes.size());

    QTRY_COMPARE_WITH_TIMEOUT(m_edit->toPlainText(), stream.expected, kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(worker.pendingBytes(), 0, kWaitMs);
    QVERIFY(worker.stopThread());
    QCOMPARE(m_edit->toPlainText(), stream.expected);
}

QTEST_MAIN(tst_desktoptyping)
#include "tst_desktoptyping.moc"
