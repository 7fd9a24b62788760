#include "FileProbe.h"
#include "InstanceLock.h"
#include "TestProgramDir.h"
#include "XTestKeyInjector.h"
#include "XdgAutostartStore.h"

#include <QLineEdit>
#include <QtTest>
#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <future>
#include <unistd.h>

// Each character down, then up.
static void type(XTestKeyInjector& injector, const QByteArray& text)
{
    for (const char c : text)
        for (const bool down : { true, false })
            injector.sendCharacter(static_cast<unsigned char>(c), down);
}

// Types as the worker does: characters down and up, a batch of virtual keys, a tap of Return.
static void typeForTheUser(const QByteArray& text)
{
    XTestKeyInjector injector;
    type(injector, "a" + text + "hello"); // "a" first: a Shift still held would make it "A"
    injector.sendVirtualKeys({ { 16, true }, { 37, true }, { 16, false }, { 37, false } }); // Shift+Left
    type(injector, "X");
    injector.tapCharacterKey('\r');
    QProcess::execute("setxkbmap", { "de,us" }); // the user switches layouts while typing goes on
    type(injector, text);
} // going out of use counts as typing gone idle

class tst_platform final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home { QDir::tempPath() + "/config home-XXXXXX" };
    const QString m_autostart = m_home.filePath("autostart");
    Display* const m_probe = XOpenDisplay(nullptr);

    QByteArray keymap() const
    {
        int width = 0;
        KeySym* map = XGetKeyboardMapping(m_probe, 8, 248, &width);
        const QByteArray bytes(reinterpret_cast<const char*>(map), 248 * width * sizeof(KeySym));
        XFree(map);
        return bytes;
    }

private slots:
    void initTestCase()
    {
        XAutoRepeatOff(m_probe);                                      // a key left down must not repeat into the text
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home.path())); // with a blank in it
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1")); // entries are UTF-8 all the same
    }

    void cleanupTestCase() { XCloseDisplay(m_probe); }

    void autostartEntryKeepsThePath_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("exec");
        QTest::newRow("plain") << QString("/opt/tw/tapwright") << "Exec=/opt/tw/tapwright";
        QTest::newRow("blanks") << QString("/home/操作员/My Programs/tw") << "Exec=\"/home/操作员/My Programs/tw\"";
        QTest::newRow("quotes, dollar, backtick, backslash, tab, percent")
            << QString("/a/\"q\" $x/`y`/b\\c\t%f") << "Exec=\"/a/\\\\\"q\\\\\" \\\\$x/\\\\`y\\\\`/b\\\\\\\\c\\t%%f\"";
    }

    void autostartEntryKeepsThePath()
    {
        QFETCH(QString, path);
        QFETCH(QString, exec);
        XdgAutostartStore store;
        store.setValue("other", "/usr/bin/other");
        store.setValue("tapwright", path);
        QCOMPARE(store.value("tapwright"), path);
        const QStringList lines = QString::fromUtf8(FileProbe::readAll(m_autostart + "/tapwright.desktop")).split('\n');
        QCOMPARE(lines.mid(0, 2) + lines.filter(QRegularExpression("^Exec=")),
                 QStringList({ "[Desktop Entry]", "Type=Application", exec }));

        // Names that are no file names are refused, wherever they point; remove takes only its entry.
        for (const QString& name : QStringList { "", ".", "..", "../../escaped", QDir::tempPath() + "/escaped" })
            store.setValue(name, path);
        store.remove("tapwright");
        QVERIFY(!store.contains("tapwright") && store.contains("other"));
        QCOMPARE(QDir(m_autostart).entryList(QDir::Files | QDir::Hidden), QStringList { "other.desktop" });
        QVERIFY(!QFileInfo::exists(QDir::tempPath() + "/escaped.desktop"));
    }

    void autostartEntryWrittenByHandIsRead_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("program");
        const QByteArray main = "[Desktop Entry]\nName=x\nExec=/tw\n";
        QTest::newRow("comment, other group first, escapes, arguments, first Exec wins, other keys") << QByteArray(
            "# x\n[A]\nExec=/no\n[Desktop Entry]\nExec = \"/a\\\\\\\\b/t\\sw\" -x %U\nTerminal=true\nExec=/2\n")
                                                                                                     << "/a\\b/t w";
        QTest::newRow("a key set to false before the switches")
            << QByteArray("[Desktop Entry]\nTerminal=false\nExec=/tw\n") << "/tw";
        // Switched off by the desktop: absent.
        QTest::newRow("hidden") << main + "Hidden=true\n" << QString();
        QTest::newRow("off in GNOME") << main + "X-GNOME-Autostart-enabled=false\n" << QString();
    }

    void autostartEntryWrittenByHandIsRead()
    {
        QFETCH(QByteArray, text);
        QVERIFY(TestProgramDir::writeFile(m_autostart + "/tapwright.desktop", text));
        QTEST(XdgAutostartStore().value("tapwright"), "program");
    }

    // The keys the chord names press.
    void virtualKeysHaveTheirKeysyms_data()
    {
        QTest::addColumn<int>("virtualKey");
        QTest::addColumn<unsigned long>("keysym"); // by name; "" gives none
        const std::pair<int, const char*> keys[]
            = { { 9, "Tab" }, { 16, "Shift_L" }, { 17, "Control_L" }, { 18, "Alt_L" }, { 37, "Left" },
                { 38, "Up" }, { 39, "Right" },   { 40, "Down" },      { 41, "" } };
        for (const auto& [virtualKey, keysym] : keys)
            QTest::addRow("%d", virtualKey) << virtualKey << XStringToKeysym(keysym);
    }

    void virtualKeysHaveTheirKeysyms()
    {
        QFETCH(int, virtualKey);
        QTEST(XTestKeyInjector::keysymForVirtualKey(virtualKey), "keysym");
    }

    void typesIntoTheFocusedWidget()
    {
        QCOMPARE(QProcess::execute("setxkbmap", { "us,de" }), 0);
        QLineEdit edit;
        connect(&edit, &QLineEdit::returnPressed, [&edit] { edit.insert("|"); });
        edit.show();
        edit.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&edit));
        // The user holds Shift, has Caps Lock on, Ctrl latched and the second layout chosen: all are let go
        // for the job only.
        XTestFakeKeyEvent(m_probe, XKeysymToKeycode(m_probe, XStringToKeysym("Shift_L")), True, CurrentTime);
        XkbLockModifiers(m_probe, XkbUseCoreKbd, LockMask, LockMask);
        XkbLockGroup(m_probe, XkbUseCoreKbd, 1);
        XkbLatchModifiers(m_probe, XkbUseCoreKbd, ControlMask, ControlMask); // sticky keys: Ctrl pressed once
        XSync(m_probe, False);

        // Printable ASCII and Latin-1: more characters beyond the map than there are spare keycodes.
        QByteArray text;
        for (int code = 0x20; code < 0x100; code += code == 0x7e ? 0x22 : 1)
            text += char(code);
        std::future<void> job = std::async(std::launch::async, typeForTheUser, text);
        QTRY_COMPARE_WITH_TIMEOUT(edit.text(), QString::fromLatin1("a" + text + "hellX|" + text), 20000);
        job.wait();
        XkbStateRec s {};
        XkbGetState(m_probe, XkbUseCoreKbd, &s);
        char keys[32];
        XQueryKeymap(m_probe, keys);
        // Shift, Caps Lock, the latched Ctrl and the layout are back, and nothing but Shift is down.
        QCOMPARE(QVector<int>(
                     { s.base_mods, s.locked_mods, s.latched_mods, s.locked_group, QByteArray(keys, 32).count('\0') }),
                 QVector<int>({ ShiftMask, LockMask, ControlMask, 1, 31 }));
        XkbLatchModifiers(m_probe, XkbUseCoreKbd, ControlMask, 0);
        // Every spare keycode lent out is free again: the map is the layout's own.
        const QByteArray map = keymap();
        QCOMPARE(QProcess::execute("setxkbmap", { "de,us" }), 0);
        QCOMPARE(map, keymap());

        // With no display, every event is refused.
        XTestKeyInjector none(":4711");
        QVERIFY(!none.isAvailable() && none.sendCharacter('a', true) == 0
                && none.sendVirtualKeys({ { 17, true } }) == 0);
        // Bytes with no keysym of their own, as the GS of GS1 codes, take the Unicode one.
        for (const unsigned int code : { 0x1du, 0x85u })
            QCOMPARE(XTestKeyInjector::keysymForCharacter(code), 0x01000000ul + code);
        QCOMPARE(XTestKeyInjector::keysymForCharacter('~'), 0x7eul); // the last of ASCII has its own
    }

    // The user lets go of the Shift held when typing began, while the job types shifted keys: it stays up.
    void modifierLetGoWhileTypingStaysUp()
    {
        const KeyCode shift = XKeysymToKeycode(m_probe, XStringToKeysym("Shift_L"));
        const auto shiftDown = [this, shift] {
            char keys[32];
            XQueryKeymap(m_probe, keys);
            return bool(keys[shift / 8] & (1 << (shift % 8)));
        };
        XTestFakeKeyEvent(m_probe, shift, True, CurrentTime);
        XSync(m_probe, False);
        {
            XTestKeyInjector injector;
            const QByteArray map = keymap(); // keys of the layout's own take no spare keycode
            type(injector, "A<b");
            QTRY_VERIFY(!shiftDown()); // the job's own events reach the server on their own connection
            XTestFakeKeyEvent(m_probe, shift, False, CurrentTime);
            XSync(m_probe, False);
            type(injector, "C");
            QCOMPARE(keymap(), map);
        }
        QVERIFY(!shiftDown());
    }

    // Last, as it changes the runtime directory.
    void secondInstanceFindsTheMarkerTaken()
    {
        QCOMPARE(InstanceLock::markerPath("Tapwright"), qEnvironmentVariable("XDG_RUNTIME_DIR") + "/Tapwright.lock");
        QProcess holder; // another process holds it until it is killed
        holder.start("flock", { "-n", "-o", InstanceLock::markerPath("Tapwright"), "-c", "echo held; read line" });
        QTRY_VERIFY(holder.canReadLine());
        QVERIFY(InstanceLock("Tapwright").alreadyExists());
        holder.kill();
        QVERIFY(holder.waitForFinished() && InstanceLock("Tapwright").isHeld());

        qputenv("XDG_RUNTIME_DIR", "");
        QCOMPARE(InstanceLock::markerPath("Tapwright"), QDir::tempPath() + QString("/Tapwright-%1.lock").arg(getuid()));
        qputenv("XDG_RUNTIME_DIR", "/nonexistent"); // a marker that cannot be made: no other instance
        QVERIFY(!InstanceLock("Tapwright").isHeld() && !InstanceLock("Tapwright").alreadyExists());
    }
};

QTEST_MAIN(tst_platform)
#include "tst_platform.moc"
