#include "XTestKeyInjector.h"

#include <QLineEdit>
#include <QProcess>
#include <QSemaphore>
#include <QSignalSpy>
#include <QThread>
#include <QVBoxLayout>
#include <QWidget>
#include <QtTest>
#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <functional>
#include <memory>

namespace {

constexpr int kWaitMs = 10000;

void typeText(XTestKeyInjector& injector, const QByteArray& latin1)
{
    for (const char byte : latin1) {
        const auto code = static_cast<unsigned char>(byte);
        injector.sendCharacter(code, true);
        injector.sendCharacter(code, false);
    }
}

void shiftLeft(XTestKeyInjector& injector)
{
    injector.sendVirtualKeys({ { 16, true }, { 37, true }, { 16, false }, { 37, false } });
}

QByteArray latin1Range(int first, int last)
{
    QByteArray bytes;
    for (int code = first; code <= last; ++code) {
        bytes.append(static_cast<char>(code));
    }
    return bytes;
}

// Types on a thread of its own, as the worker does, so that this thread's event loop takes the
// keys while they come.
class TypingJob
{
public:
    explicit TypingJob(std::function<void(XTestKeyInjector&)> script)
        : m_thread(QThread::create([script] {
            XTestKeyInjector injector;
            script(injector);
        }))
    {
        m_thread->start();
    }
    ~TypingJob() { m_thread->wait(); }

    bool isFinished() const { return m_thread->isFinished(); }

private:
    std::unique_ptr<QThread> m_thread;
};

} // namespace

class tst_xtestkeyinjector final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void typesTextOnLayout_data();
    void typesTextOnLayout();
    void tapsReturnKey();
    void virtualKeyBatchExtendsSelection();
    void letsGoOfHeldModifiersForTheJob();
    void lendsSpareKeycodesAndGivesThemBack();
    void followsLayoutSwitchWhileTyping();
    void refusesWithoutDisplay();

private:
    static bool setLayout(const QString& layout);
    int keycodesWithoutSymbols() const;
    unsigned int baseModifiers() const;
    unsigned int lockedModifiers() const;

    Display* m_probe = nullptr;
    std::unique_ptr<QWidget> m_window;
    QLineEdit* m_edit = nullptr;
};

void tst_xtestkeyinjector::initTestCase()
{
    m_probe = XOpenDisplay(nullptr);
    QVERIFY(m_probe);
    QVERIFY(XTestKeyInjector().isAvailable());
}

void tst_xtestkeyinjector::cleanupTestCase()
{
    if (m_probe) {
        XCloseDisplay(m_probe);
    }
}

void tst_xtestkeyinjector::init()
{
    QVERIFY(setLayout("us"));
    m_window = std::make_unique<QWidget>();
    auto* layout = new QVBoxLayout(m_window.get());
    m_edit = new QLineEdit(m_window.get());
    layout->addWidget(m_edit);
    m_window->resize(800, 60);
    m_window->show();
    m_window->activateWindow();
    m_edit->setFocus();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    QTRY_VERIFY_WITH_TIMEOUT(m_edit->hasFocus(), kWaitMs);
}

void tst_xtestkeyinjector::cleanup()
{
    m_window.reset();
    m_edit = nullptr;
}

bool tst_xtestkeyinjector::setLayout(const QString& layout)
{
    return QProcess::execute("setxkbmap", { "-display", qEnvironmentVariable("DISPLAY"), layout }) == 0;
}

int tst_xtestkeyinjector::keycodesWithoutSymbols() const
{
    XkbDescPtr xkb = XkbGetMap(m_probe, XkbKeySymsMask, XkbUseCoreKbd);
    if (!xkb) {
        return -1;
    }
    int count = 0;
    for (int keycode = xkb->min_key_code; keycode <= xkb->max_key_code; ++keycode) {
        count += XkbKeyNumSyms(xkb, keycode) == 0 ? 1 : 0;
    }
    XkbFreeKeyboard(xkb, 0, True);
    return count;
}

unsigned int tst_xtestkeyinjector::baseModifiers() const
{
    XkbStateRec state {};
    XkbGetState(m_probe, XkbUseCoreKbd, &state);
    return state.base_mods;
}

unsigned int tst_xtestkeyinjector::lockedModifiers() const
{
    XkbStateRec state {};
    XkbGetState(m_probe, XkbUseCoreKbd, &state);
    return state.locked_mods;
}

void tst_xtestkeyinjector::typesTextOnLayout_data()
{
    QTest::addColumn<QString>("layout");
    QTest::addColumn<QByteArray>("text");

    // More characters beyond the map than there are spare keycodes, so slots are lent out again.
    const QByteArray upperHalf = "\xE9\xFC\xDF\xA7 " + latin1Range(0xA1, 0xFF);
    for (const QString layout : { "us", "de" }) {
        QTest::addRow("%s ascii", qPrintable(layout)) << layout << latin1Range(0x20, 0x7E);
        QTest::addRow("%s latin-1", qPrintable(layout)) << layout << upperHalf;
    }
}

void tst_xtestkeyinjector::typesTextOnLayout()
{
    QFETCH(QString, layout);
    QFETCH(QByteArray, text);
    QVERIFY(setLayout(layout));
    const int spareBefore = keycodesWithoutSymbols();

    TypingJob job([text](XTestKeyInjector& injector) {
        typeText(injector, text);
        injector.finishTyping();
    });

    QTRY_COMPARE_WITH_TIMEOUT(m_edit->text(), QString::fromLatin1(text), kWaitMs);
    QTRY_VERIFY_WITH_TIMEOUT(job.isFinished(), kWaitMs);
    QCOMPARE(keycodesWithoutSymbols(), spareBefore);
}

void tst_xtestkeyinjector::tapsReturnKey()
{
    QSignalSpy returns(m_edit, &QLineEdit::returnPressed);
    TypingJob job([](XTestKeyInjector& injector) {
        typeText(injector, "ok");
        injector.tapCharacterKey('\r');
        injector.finishTyping();
    });

    QTRY_COMPARE_WITH_TIMEOUT(returns.count(), 1, kWaitMs);
    QCOMPARE(m_edit->text(), QString("ok"));
}

void tst_xtestkeyinjector::virtualKeyBatchExtendsSelection()
{
    TypingJob job([](XTestKeyInjector& injector) {
        typeText(injector, "hello");
        shiftLeft(injector);
        shiftLeft(injector);
        typeText(injector, "X");
        injector.finishTyping();
    });

    QTRY_COMPARE_WITH_TIMEOUT(m_edit->text(), QString("helX"), kWaitMs);
    QTRY_VERIFY_WITH_TIMEOUT(job.isFinished(), kWaitMs);
    QCOMPARE(baseModifiers(), 0u);
}

void tst_xtestkeyinjector::letsGoOfHeldModifiersForTheJob()
{
    const KeyCode shift = XKeysymToKeycode(m_probe, XK_Shift_L);
    XTestFakeKeyEvent(m_probe, shift, True, CurrentTime);
    XkbLockModifiers(m_probe, XkbUseCoreKbd, LockMask, LockMask);
    XSync(m_probe, False);
    QCOMPARE(baseModifiers() & ShiftMask, static_cast<unsigned int>(ShiftMask));

    TypingJob job([](XTestKeyInjector& injector) {
        typeText(injector, "aB1!z");
        injector.finishTyping();
    });
    QTRY_COMPARE_WITH_TIMEOUT(m_edit->text(), QString("aB1!z"), kWaitMs);
    QTRY_VERIFY_WITH_TIMEOUT(job.isFinished(), kWaitMs);

    const unsigned int base = baseModifiers();
    const unsigned int locked = lockedModifiers();
    XTestFakeKeyEvent(m_probe, shift, False, CurrentTime);
    XkbLockModifiers(m_probe, XkbUseCoreKbd, LockMask, 0);
    XSync(m_probe, False);
    QCOMPARE(base & ShiftMask, static_cast<unsigned int>(ShiftMask));
    QCOMPARE(locked & LockMask, static_cast<unsigned int>(LockMask));
}

void tst_xtestkeyinjector::lendsSpareKeycodesAndGivesThemBack()
{
    const int spareBefore = keycodesWithoutSymbols();
    QVERIFY(spareBefore > 0);
    QCOMPARE(XKeysymToKeycode(m_probe, XK_eacute), KeyCode(0));
    QSemaphore typed;
    QSemaphore looked;

    TypingJob job([&typed, &looked](XTestKeyInjector& injector) {
        typeText(injector, "\xE9\xE9\xC9");
        typed.release();
        looked.tryAcquire(1, kWaitMs);
        injector.finishTyping();
    });

    QTRY_COMPARE_WITH_TIMEOUT(typed.available(), 1, kWaitMs);
    const int spareWhileTyping = keycodesWithoutSymbols();
    looked.release();
    QTRY_COMPARE_WITH_TIMEOUT(m_edit->text(), QString::fromLatin1("\xE9\xE9\xC9"), kWaitMs);
    QTRY_VERIFY_WITH_TIMEOUT(job.isFinished(), kWaitMs);

    // One slot for each character: é twice is one binding, É another.
    QCOMPARE(spareWhileTyping, spareBefore - 2);
    QCOMPARE(keycodesWithoutSymbols(), spareBefore);
}

void tst_xtestkeyinjector::followsLayoutSwitchWhileTyping()
{
    QSemaphore typed;
    QSemaphore switched;

    TypingJob job([&typed, &switched](XTestKeyInjector& injector) {
        typeText(injector, "yz@");
        typed.release();
        switched.tryAcquire(1, kWaitMs);
        typeText(injector, "yz@");
        injector.finishTyping();
    });

    QTRY_COMPARE_WITH_TIMEOUT(typed.available(), 1, kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(m_edit->text(), QString("yz@"), kWaitMs);
    QVERIFY(setLayout("de"));
    switched.release();

    QTRY_COMPARE_WITH_TIMEOUT(m_edit->text(), QString("yz@yz@"), kWaitMs);
    QTRY_VERIFY_WITH_TIMEOUT(job.isFinished(), kWaitMs);
}

void tst_xtestkeyinjector::refusesWithoutDisplay()
{
    XTestKeyInjector injector(":4711");
    QVERIFY(!injector.isAvailable());
    QCOMPARE(injector.sendCharacter('a', true), 0);
    QCOMPARE(injector.sendCharacter('a', false), 0);
    QCOMPARE(injector.sendVirtualKeys({ { 17, true }, { 17, false } }), 0);
    injector.tapCharacterKey('\r');
    injector.finishTyping();
}

QTEST_MAIN(tst_xtestkeyinjector)
#include "tst_xtestkeyinjector.moc"
