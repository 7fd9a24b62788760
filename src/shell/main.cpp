#include "AppIcon.h"
#include "DataLocations.h"
#include "HeadlessService.h"
#include "InstanceLock.h"
#include "LogRetention.h"
#include "Logger.h"
#include "MainWindow.h"
#include "ProgramDirectory.h"
#include "SignalWatcher.h"
#include "wirelet/Wirelet.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QMessageBox>
#include <QSettings>
#include <QTranslator>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

// Exit code of a headless start that has nothing to run; the service unit does not restart on it.
constexpr int kNothingToRun = 2;
const QString kInstanceName = QStringLiteral("Tapwright");

bool hasArgument(int argc, char* argv[], std::initializer_list<const char*> names)
{
    for (int i = 1; i < argc; ++i) {
        for (const char* name : names) {
            if (std::strcmp(argv[i], name) == 0) {
                return true;
            }
        }
    }
    return false;
}

// Settled before the application object exists: the window system and the scaling.
void prepareWindowSystem(int argc, char* argv[])
{
    // The frameless window moves and resizes itself and keys are typed through XTest, which only X11
    // allows; under Wayland that is XWayland, unless the user chose a platform.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && !hasArgument(argc, argv, { "-platform", "--platform" })
        && !qEnvironmentVariableIsEmpty("DISPLAY")) {
        qputenv("QT_QPA_PLATFORM", "xcb");
    }
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
}

// The names the desktop knows the program by, whatever name it was started under: the settings
// directory, the autostart entry, WM_CLASS and the menu entry tapwright.desktop must agree. No display
// name: Qt would append it to every dialog's title.
void nameTheProgram()
{
    QCoreApplication::setApplicationName(QStringLiteral("tapwright"));
    QGuiApplication::setDesktopFileName(QStringLiteral("tapwright"));
    if (!qEnvironmentVariableIsSet("RESOURCE_NAME")) {
        qputenv("RESOURCE_NAME", "tapwright");
    }
}

void openLog()
{
    const DataLocations& locations = DataLocations::ofThisProgram();
    const QString logDir = locations.logDirectory();
    if (!QDir(logDir).exists()) {
        QDir().mkdir(logDir);
    }
    const QString logPath = logDir + QStringLiteral("/log_Tapwright_")
        + QDateTime::currentDateTime().toString(QStringLiteral("yyyy_MM_dd")) + QStringLiteral(".txt");
    Logger::open(QFile::encodeName(logPath).toStdString());
    Logger::setLevel(LOG_DEBUG);
    if (!locations.besideProgram()) {
        Logger::info(locations.notice());
    }
    Logger::info("[INFO] Quillon start...");
    purgeOldLogs(logDir);
}

void reportSecondInstance()
{
    std::fputs("tapwright: another instance is already running for this user; this one ends.\n", stderr);
}

// The language the window would start in, for the texts a headless run prints.
void loadHeadlessLanguage(QTranslator& translator)
{
    const QSettings settings(DataLocations::ofThisProgram().languageFile(), QSettings::IniFormat);
    if (settings.value(QStringLiteral("language/lang"), QStringLiteral("2")).toInt() == 0
        && translator.load(QStringLiteral("Language/chinese/quillon_zh.qm"))) {
        QCoreApplication::installTranslator(&translator);
    }
}

int runHeadless(QCoreApplication& app)
{
    openLog();
    const InstanceLock instanceLock(kInstanceName);
    if (instanceLock.alreadyExists()) {
        reportSecondInstance();
        return -1;
    }
    QTranslator translator;
    loadHeadlessLanguage(translator);

    const QString configPath = DataLocations::ofThisProgram().configFile();
    HeadlessService service;
    const int devices = service.start(configPath);
    if (devices < 0) {
        std::fprintf(stderr, "tapwright: %s is missing or is not a valid configuration.\n", qPrintable(configPath));
        return kNothingToRun;
    }
    if (devices == 0) {
        std::fprintf(stderr, "tapwright: no device in %s could be opened.\n", qPrintable(configPath));
        return kNothingToRun;
    }
    SignalWatcher stopSignals;
    QObject::connect(&stopSignals, &SignalWatcher::stopRequested, &app, [](int number) {
        Logger::info("[INFO] Stopping on signal %d.", number);
        QCoreApplication::quit();
    });
    const int result = app.exec();
    service.stop();
    Velko::Wirelet::finalize();
    return result;
}

int runWindow(QApplication& app, bool externalStart)
{
    QApplication::setWindowIcon(AppIcon::icon());
    openLog();

    // Held until the process ends; the kernel drops it with the process.
    const InstanceLock instanceLock(kInstanceName);
    const bool instanceExists = instanceLock.alreadyExists();

    MainWindow window(nullptr, externalStart);

    if (instanceExists) {
        reportSecondInstance();
        QMessageBox::information(nullptr,
                                 QObject::tr("Tip"),
                                 QObject::tr("A software instance is already running! The current instance will be "
                                             "closed."),
                                 QMessageBox::Ok);
        return -1;
    }

    window.show();
    return app.exec();
}

} // namespace

int main(int argc, char* argv[])
{
    // The window draws with the raster engine; probing GLX would load a software GL stack (tens of MB)
    // that nothing uses.
    if (!qEnvironmentVariableIsSet("QT_XCB_GL_INTEGRATION")) {
        qputenv("QT_XCB_GL_INTEGRATION", "none");
    }
    // Traces stay off standard error unless asked for: QT_LOGGING_CONF and QT_LOGGING_RULES take
    // precedence over these rules.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false\ndefault.info=false"));
    // Headless runs, help and version need no display.
    const bool withoutWindow
        = hasArgument(argc, argv, { "--headless", "--help", "--help-all", "-h", "--version", "-v" });
    if (!withoutWindow) {
        prepareWindowSystem(argc, argv);
    }
    std::unique_ptr<QCoreApplication> app(withoutWindow ? new QCoreApplication(argc, argv)
                                                        : new QApplication(argc, argv));
    QCoreApplication::setApplicationVersion(QStringLiteral(TAPWRIGHT_VERSION));
    nameTheProgram();

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Receives barcode text from cameras over TCP, one device each, writes each frame to a file and shows the "
        "stream in a window."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOption({ QStringLiteral("headless"),
                       QStringLiteral("Run without a window: open the devices stored open in TCPconfig.json and "
                                      "print the messages to standard output until SIGTERM or SIGINT.") });
    parser.addPositionalArgument(QStringLiteral("External_Start"),
                                 QStringLiteral("Started by the desktop at logon: the window is not minimised."),
                                 QStringLiteral("[External_Start]"));
    // Options the program does not know are ignored: it starts as usual.
    parser.parse(QCoreApplication::arguments());
    if (parser.isSet(QStringLiteral("help"))) {
        parser.showHelp();
    }
    if (parser.isSet(QStringLiteral("version"))) {
        parser.showVersion();
    }

    QDir::setCurrent(QFile::decodeName(executableDirectory()));
    if (parser.isSet(QStringLiteral("headless"))) {
        return runHeadless(*app);
    }
    const bool externalStart = QCoreApplication::arguments().value(1) == QLatin1String("External_Start");
    return runWindow(static_cast<QApplication&>(*app), externalStart);
}
