#include "InstanceLock.h"
#include "LogRetention.h"
#include "Logger.h"
#include "MainWindow.h"
#include "ProgramDirectory.h"

#include <QApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QIcon>
#include <QMessageBox>

int main(int argc, char* argv[])
{
    // The window draws with the raster engine; probing GLX would load a software GL stack (tens of MB)
    // that nothing uses.
    if (!qEnvironmentVariableIsSet("QT_XCB_GL_INTEGRATION")) {
        qputenv("QT_XCB_GL_INTEGRATION", "none");
    }
    QApplication app(argc, argv);

    bool instanceExists = false;
    bool externalStart = false;

    QDir::setCurrent(QFile::decodeName(executableDirectory()));

    if (argc > 1 && QString::fromUtf8(argv[1]) == QLatin1String("External_Start")) {
        externalStart = true;
    }

    QApplication::setWindowIcon(QIcon(QStringLiteral("://app_icon.ico")));

    const QString basePath = QDir::currentPath();
    const QString logDir = basePath + QStringLiteral("/Log");
    if (!QDir(logDir).exists()) {
        QDir().mkdir(logDir);
    }
    const QString logPath = logDir + QStringLiteral("/log_Tapwright_")
        + QDateTime::currentDateTime().toString(QStringLiteral("yyyy_MM_dd")) + QStringLiteral(".txt");

    Logger::open(QFile::encodeName(logPath).toStdString());
    Logger::setLevel(LOG_DEBUG);
    Logger::info("[INFO] Quillon start...");

    purgeOldLogs(logDir);

    // Held until the process ends; the kernel drops it with the process.
    const InstanceLock instanceLock(QStringLiteral("Tapwright"));
    if (instanceLock.alreadyExists()) {
        instanceExists = true;
    }

    MainWindow window(nullptr, externalStart);

    if (instanceExists) {
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
