#include "XdgAutostartStore.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>
#include <memory>

class tst_XdgAutostartStore final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void roundTripKeepsThePath_data();
    void roundTripKeepsThePath();
    void entryIsAValidDesktopEntry();
    void pathWithBlanksIsQuotedInExec();
    void rewriteReplacesTheOldPath();
    void removeDeletesOnlyTheEntry();
    void removeWithoutEntryChangesNothing();
    void switchedOffEntryCountsAsAbsent_data();
    void switchedOffEntryCountsAsAbsent();
    void entryWrittenByHandIsRead_data();
    void entryWrittenByHandIsRead();
    void nameThatIsNoFileNameIsRefused_data();
    void nameThatIsNoFileNameIsRefused();

private:
    QString autostartDir() const { return m_configHome->path() + QStringLiteral("/autostart"); }
    void writeEntry(const QString& name, const QByteArray& text);
    QStringList filesUnderConfigHome() const;

    std::unique_ptr<QTemporaryDir> m_configHome;
};

void tst_XdgAutostartStore::init()
{
    // A config home of our own, with a blank in it, whatever the environment says.
    m_configHome = std::make_unique<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/config home-XXXXXX"));
    QVERIFY(m_configHome->isValid());
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_configHome->path()));
}

void tst_XdgAutostartStore::cleanup()
{
    m_configHome.reset();
}

void tst_XdgAutostartStore::writeEntry(const QString& name, const QByteArray& text)
{
    QVERIFY(QDir().mkpath(autostartDir()));
    QFile file(autostartDir() + QLatin1Char('/') + name + QStringLiteral(".desktop"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(text), qint64(text.size()));
}

QStringList tst_XdgAutostartStore::filesUnderConfigHome() const
{
    QStringList files;
    QDirIterator it(m_configHome->path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << QDir(m_configHome->path()).relativeFilePath(it.next());
    files.sort();
    return files;
}

void tst_XdgAutostartStore::roundTripKeepsThePath_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("plain") << QStringLiteral("/opt/tapwright/tapwright");
    QTest::newRow("blanks") << QStringLiteral("/home/op/My Programs/tap wright/tapwright");
    QTest::newRow("leading blank in a folder") << QStringLiteral("/srv/ line/tapwright");
    QTest::newRow("quotes and dollar") << QStringLiteral("/srv/\"line\" $2/it's/tapwright");
    QTest::newRow("backslash and backtick") << QStringLiteral("/srv/a\\b/`c`/tapwright");
    QTest::newRow("percent") << QStringLiteral("/srv/100%/%f%%/tapwright");
    QTest::newRow("shell specials") << QStringLiteral("/srv/a&b;c|d<e>f*g?h#i(j)~k/tapwright");
    QTest::newRow("tab") << QStringLiteral("/srv/a\tb/tapwright");
    QTest::newRow("chinese") << QStringLiteral("/home/操作员/程序 目录/tapwright");
}

void tst_XdgAutostartStore::roundTripKeepsThePath()
{
    QFETCH(QString, path);
    XdgAutostartStore store;
    QVERIFY(!store.contains(QStringLiteral("tapwright")));
    QCOMPARE(store.value(QStringLiteral("tapwright")), QString());

    store.setValue(QStringLiteral("tapwright"), path);

    QVERIFY(store.contains(QStringLiteral("tapwright")));
    QCOMPARE(store.value(QStringLiteral("tapwright")), path);
    QCOMPARE(XdgAutostartStore().value(QStringLiteral("tapwright")), path);
}

void tst_XdgAutostartStore::entryIsAValidDesktopEntry()
{
    XdgAutostartStore store;
    QCOMPARE(store.entryPath(QStringLiteral("tapwright")), autostartDir() + QStringLiteral("/tapwright.desktop"));
    QVERIFY(!QFileInfo::exists(autostartDir()));

    store.setValue(QStringLiteral("tapwright"), QStringLiteral("/opt/tapwright/tapwright"));

    QFile file(autostartDir() + QStringLiteral("/tapwright.desktop"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.value(0), QStringLiteral("[Desktop Entry]"));
    QVERIFY(lines.contains(QStringLiteral("Type=Application")));
    QVERIFY(lines.contains(QStringLiteral("Name=Tapwright")));
    QVERIFY(lines.contains(QStringLiteral("Exec=/opt/tapwright/tapwright")));
    QVERIFY(lines.contains(QStringLiteral("X-GNOME-Autostart-enabled=true")));
    for (const QString& line : lines)
        QVERIFY2(line.startsWith(QLatin1Char('[')) || line.contains(QLatin1Char('=')), qPrintable(line));
    QCOMPARE(filesUnderConfigHome(), QStringList { QStringLiteral("autostart/tapwright.desktop") });
}

void tst_XdgAutostartStore::pathWithBlanksIsQuotedInExec()
{
    XdgAutostartStore store;
    store.setValue(QStringLiteral("tapwright"), QStringLiteral("/home/op/My Programs/tapwright"));

    QFile file(autostartDir() + QStringLiteral("/tapwright.desktop"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray text = file.readAll();
    QVERIFY2(text.contains("\nExec=\"/home/op/My Programs/tapwright\"\n"), text.constData());

    QCOMPARE(XdgAutostartStore::execValue(QStringLiteral("/a b/\"q\"/$x/`y`/\\z/50%")),
             QStringLiteral("\"/a b/\\\"q\\\"/\\$x/\\`y\\`/\\\\z/50%%\""));
    QCOMPARE(XdgAutostartStore::execValue(QStringLiteral("/plain/path-1.0_x")), QStringLiteral("/plain/path-1.0_x"));
}

void tst_XdgAutostartStore::rewriteReplacesTheOldPath()
{
    XdgAutostartStore store;
    store.setValue(QStringLiteral("tapwright"), QStringLiteral("/old place/tapwright"));
    store.setValue(QStringLiteral("tapwright"), QStringLiteral("/new/tapwright"));

    QCOMPARE(store.value(QStringLiteral("tapwright")), QStringLiteral("/new/tapwright"));
    QFile file(autostartDir() + QStringLiteral("/tapwright.desktop"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll().count("\nExec="), 1);
    QCOMPARE(filesUnderConfigHome(), QStringList { QStringLiteral("autostart/tapwright.desktop") });
}

void tst_XdgAutostartStore::removeDeletesOnlyTheEntry()
{
    writeEntry(QStringLiteral("other"), "[Desktop Entry]\nType=Application\nName=Other\nExec=/usr/bin/other\n");
    XdgAutostartStore store;
    store.setValue(QStringLiteral("tapwright"), QStringLiteral("/opt/tapwright/tapwright"));
    QVERIFY(store.contains(QStringLiteral("tapwright")));

    store.remove(QStringLiteral("tapwright"));

    QVERIFY(!store.contains(QStringLiteral("tapwright")));
    QCOMPARE(store.value(QStringLiteral("tapwright")), QString());
    QCOMPARE(filesUnderConfigHome(), QStringList { QStringLiteral("autostart/other.desktop") });
    QCOMPARE(store.value(QStringLiteral("other")), QStringLiteral("/usr/bin/other"));
}

void tst_XdgAutostartStore::removeWithoutEntryChangesNothing()
{
    XdgAutostartStore store;
    store.remove(QStringLiteral("tapwright"));

    QVERIFY(!QFileInfo::exists(autostartDir()));
    QVERIFY(filesUnderConfigHome().isEmpty());
}

void tst_XdgAutostartStore::switchedOffEntryCountsAsAbsent_data()
{
    QTest::addColumn<QByteArray>("offSwitch");
    QTest::newRow("hidden") << QByteArray("Hidden=true\n");
    QTest::newRow("gnome disabled") << QByteArray("X-GNOME-Autostart-enabled=false\n");
}

void tst_XdgAutostartStore::switchedOffEntryCountsAsAbsent()
{
    QFETCH(QByteArray, offSwitch);
    writeEntry(QStringLiteral("tapwright"),
               "[Desktop Entry]\nType=Application\nName=Tapwright\nExec=/opt/tapwright/tapwright\n" + offSwitch);
    XdgAutostartStore store;
    QVERIFY(!store.contains(QStringLiteral("tapwright")));
    QCOMPARE(store.value(QStringLiteral("tapwright")), QString());

    store.setValue(QStringLiteral("tapwright"), QStringLiteral("/opt/tapwright/tapwright"));

    QVERIFY(store.contains(QStringLiteral("tapwright")));
}

void tst_XdgAutostartStore::entryWrittenByHandIsRead_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("program");
    QTest::newRow("arguments and field code")
        << QByteArray("[Desktop Entry]\nType=Application\nExec=/opt/tw/tapwright External_Start %U\n")
        << QStringLiteral("/opt/tw/tapwright");
    QTest::newRow("comments, blanks round the key, other group first")
        << QByteArray("# made by hand\n[Desktop Action x]\nExec=/wrong\n\n[Desktop Entry]\nExec = \"/a b/tw\" -x\n")
        << QStringLiteral("/a b/tw");
    QTest::newRow("string escapes") << QByteArray("[Desktop Entry]\nExec=\"/a\\\\\\\\b/t\\sw\"\n")
                                    << QStringLiteral("/a\\b/t w");
    QTest::newRow("first Exec wins") << QByteArray("[Desktop Entry]\nExec=/first\nExec=/second\n")
                                     << QStringLiteral("/first");
    QTest::newRow("unclosed quote") << QByteArray("[Desktop Entry]\nExec=\"/a b/tw\n") << QString();
    QTest::newRow("no Exec") << QByteArray("[Desktop Entry]\nType=Application\n") << QString();
    QTest::newRow("no main group") << QByteArray("Exec=/opt/tw/tapwright\n") << QString();
}

void tst_XdgAutostartStore::entryWrittenByHandIsRead()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, program);
    writeEntry(QStringLiteral("tapwright"), text);

    XdgAutostartStore store;
    QCOMPARE(store.value(QStringLiteral("tapwright")), program);
    QCOMPARE(store.contains(QStringLiteral("tapwright")), !program.isEmpty());
}

void tst_XdgAutostartStore::nameThatIsNoFileNameIsRefused_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("empty") << QString();
    QTest::newRow("parent") << QStringLiteral("..");
    QTest::newRow("climbs out") << QStringLiteral("../../escaped");
    QTest::newRow("absolute") << QStringLiteral("/tmp/escaped");
}

void tst_XdgAutostartStore::nameThatIsNoFileNameIsRefused()
{
    QFETCH(QString, name);
    XdgAutostartStore store;
    store.setValue(name, QStringLiteral("/opt/tapwright/tapwright"));

    QVERIFY(!store.contains(name));
    QVERIFY(store.entryPath(name).isEmpty());
    QVERIFY(filesUnderConfigHome().isEmpty());
    QVERIFY(!QFileInfo::exists(QDir::tempPath() + QStringLiteral("/escaped.desktop")));
}

QTEST_GUILESS_MAIN(tst_XdgAutostartStore)
#include "tst_xdgautostartstore.moc"
