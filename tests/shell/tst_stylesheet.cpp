#include "FileProbe.h"
#include "MainWindow.h"
#include "TCPSettingWidget.h"
#include "TCPSettings.h"
#include "TestProgramDir.h"

#include <QApplication>
#include <QImage>
#include <QLabel>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QToolButton>
#include <QtTest>
#include <memory>

namespace {

QStringList g_styleWarnings;
QtMessageHandler g_previousHandler = nullptr;

// Qt reports a sheet it cannot parse, or an image it cannot load, only as a warning.
void collectStyleWarnings(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (type == QtWarningMsg
        && (message.contains(QLatin1String("style"), Qt::CaseInsensitive)
            || message.contains(QLatin1String("image"), Qt::CaseInsensitive)))
        g_styleWarnings << message;
    g_previousHandler(type, context, message);
}

QColor centreColour(QWidget* widget)
{
    const QImage image = widget->grab().toImage();
    return image.pixelColor(image.width() / 2, image.height() / 2);
}

// How many pixels differ clearly from the top left one, the button's background.
int markedPixels(QWidget* widget)
{
    const QImage image = widget->grab().toImage();
    const QColor background = image.pixelColor(0, 0);
    int marked = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            if (qAbs(c.red() - background.red()) + qAbs(c.green() - background.green())
                    + qAbs(c.blue() - background.blue())
                > 120)
                ++marked;
        }
    }
    return marked;
}

} // namespace

// The shipped sheet, loaded by the real window from beside the (test) program.
class tst_StyleSheet final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void sheetLoadsWithoutComplaint();
    void everyImageOfTheSheetIsShipped();
    void lampIsGreyWhileClosedAndGreenWhileOpen();
    void titleBarButtonsShowTheirGlyphs();
    void maximiseButtonShowsTheRestoreGlyphWhileMaximised();
    void missingSkinDirectoryLeavesQtsOwnLook();

private:
    void createWindow();
    QString skinDir() const { return TestProgramDir::path(QStringLiteral("Skins")); }
    QString setAsideSkinDir() const { return TestProgramDir::path(QStringLiteral("Skins.aside")); }

    std::unique_ptr<MainWindow> m_window;
};

void tst_StyleSheet::initTestCase()
{
    // The sheet's images are found relative to the working directory, as in the program.
    QVERIFY(QDir::setCurrent(QCoreApplication::applicationDirPath()));
    g_previousHandler = qInstallMessageHandler(collectStyleWarnings);
}

void tst_StyleSheet::init()
{
    if (QFileInfo::exists(setAsideSkinDir()))
        QVERIFY(QDir().rename(setAsideSkinDir(), skinDir()));
    QVERIFY2(QFileInfo::exists(skinDir() + QStringLiteral("/Default/TapwrightStyle.qss")),
             "the build stages the program data beside the test");
    TestProgramDir::restore();
    qApp->setStyleSheet(QString());
    g_styleWarnings.clear();
}

void tst_StyleSheet::cleanup()
{
    m_window.reset();
    if (QFileInfo::exists(setAsideSkinDir()))
        QDir().rename(setAsideSkinDir(), skinDir());
    TestProgramDir::restore();
}

void tst_StyleSheet::cleanupTestCase()
{
    qInstallMessageHandler(g_previousHandler);
}

void tst_StyleSheet::createWindow()
{
    m_window = std::make_unique<MainWindow>(nullptr, false);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

void tst_StyleSheet::sheetLoadsWithoutComplaint()
{
    createWindow();
    const QByteArray shipped = FileProbe::readAll(skinDir() + QStringLiteral("/Default/TapwrightStyle.qss"));
    QVERIFY(!shipped.isEmpty());
    QCOMPARE(qApp->styleSheet(), QString::fromUtf8(shipped));

    // Painting every widget makes Qt parse every rule and load every image it uses.
    m_window->grab();
    for (QWidget* child : m_window->findChildren<QWidget*>())
        child->grab();
    QVERIFY2(g_styleWarnings.isEmpty(), qPrintable(g_styleWarnings.join(QLatin1Char('\n'))));
}

void tst_StyleSheet::everyImageOfTheSheetIsShipped()
{
    const QString sheet
        = QString::fromUtf8(FileProbe::readAll(skinDir() + QStringLiteral("/Default/TapwrightStyle.qss")));
    const QRegularExpression url(QStringLiteral("url\\(([^)]*)\\)"));
    int images = 0;
    for (auto it = url.globalMatch(sheet); it.hasNext();) {
        const QString path = it.next().captured(1).trimmed();
        QVERIFY2(path.startsWith(QLatin1String("Skins/Default/")), qPrintable(path));
        QVERIFY2(!QImage(TestProgramDir::path(path)).isNull(), qPrintable(path));
        ++images;
    }
    QVERIFY(images >= 4);
}

void tst_StyleSheet::lampIsGreyWhileClosedAndGreenWhileOpen()
{
    QTcpServer camera;
    QVERIFY(camera.listen(QHostAddress::LocalHost));
    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    createWindow();
    auto* page = m_window->findChild<TCPSettingWidget*>(QStringLiteral("page_Device1"));
    auto* lamp = page->findChild<QLabel*>(QStringLiteral("label_TCP"));
    QCOMPARE(lamp->size(), QSize(20, 20));

    const QColor closed = centreColour(lamp);
    QVERIFY2(qAbs(closed.red() - closed.green()) < 24 && qAbs(closed.green() - closed.blue()) < 24,
             qPrintable(closed.name()));

    TCPSettings settings;
    settings.status = 1;
    settings.tcpPort = QString::number(camera.serverPort());
    settings.tcpClientIP = QStringLiteral("127.0.0.1");
    settings.fileDir = frames.path();
    settings.startChar = QStringLiteral("[");
    settings.endChar = QStringLiteral("]");
    page->setSettings(settings);
    QCOMPARE(lamp->property("status").toInt(), 1);

    const QColor open = centreColour(lamp);
    QVERIFY2(open.green() > open.red() + 40 && open.green() > open.blue() + 40, qPrintable(open.name()));

    // Round: the corner of the label's square stays the page's background.
    const QImage image = lamp->grab().toImage();
    QVERIFY(image.pixelColor(0, 0) != image.pixelColor(image.width() / 2, image.height() / 2));

    QTest::mouseClick(page->findChild<QToolButton*>(QStringLiteral("openTcpBtn")), Qt::LeftButton);
    QCOMPARE(lamp->property("status").toInt(), 0);
    QCOMPARE(centreColour(lamp), closed);
}

void tst_StyleSheet::titleBarButtonsShowTheirGlyphs()
{
    createWindow();
    for (const char* name : { "minBtn", "maxBtn", "closeBtn" }) {
        auto* button = m_window->findChild<QToolButton*>(QLatin1String(name));
        QVERIFY(button);
        QVERIFY2(button->text().isEmpty() && button->icon().isNull(), name);
        QVERIFY2(markedPixels(button) > 8, name);
    }
}

void tst_StyleSheet::maximiseButtonShowsTheRestoreGlyphWhileMaximised()
{
    createWindow();
    auto* button = m_window->findChild<QToolButton*>(QStringLiteral("maxBtn"));
    const QImage normal = button->grab().toImage();

    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(button->property("maxNormal").toBool(), true);
    const QImage maximised = button->grab().toImage();
    QVERIFY(maximised != normal);

    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(button->property("maxNormal").toBool(), false);
    QCOMPARE(button->grab().toImage(), normal);
}

void tst_StyleSheet::missingSkinDirectoryLeavesQtsOwnLook()
{
    QVERIFY(QDir().rename(skinDir(), setAsideSkinDir()));
    createWindow();

    QVERIFY(qApp->styleSheet().isEmpty());
    auto* lamp = m_window->findChild<TCPSettingWidget*>(QStringLiteral("page_Device1"))
                     ->findChild<QLabel*>(QStringLiteral("label_TCP"));
    const QImage image = lamp->grab().toImage();
    // Without the sheet the lamp is not drawn: the label shows the page's plain background.
    QCOMPARE(image.pixelColor(image.width() / 2, image.height() / 2), image.pixelColor(0, 0));
}

QTEST_MAIN(tst_StyleSheet)
#include "tst_stylesheet.moc"
