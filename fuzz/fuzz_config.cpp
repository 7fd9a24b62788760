// Reading TCPconfig.json at start: whatever the file holds, the window comes up, and a device
// opens only when its "Status" is the number 1. Each input is the whole file; the real window
// reads it beside the program, as at a start.
//
// Devices with "Status" 1 really open, so this runs only where the network is loopback alone
// (`unshare -n` with lo up): a fuzzed address must never reach a real host.
#include "Logger.h"
#include "MainWindow.h"
#include "TCPSettingWidget.h"

#include <QApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QNetworkInterface>
#include <QTemporaryDir>
#include <cstdio>
#include <cstdlib>

namespace {

QString g_configPath;

bool onlyLoopback()
{
    for (const QNetworkInterface& interface : QNetworkInterface::allInterfaces()) {
        const auto flags = interface.flags();
        if (flags.testFlag(QNetworkInterface::IsUp) && !flags.testFlag(QNetworkInterface::IsLoopBack)) {
            return false;
        }
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    // A scratch home for the autostart entry and the language file the window touches.
    static QTemporaryDir home;
    for (const char* name : { "HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME" }) {
        qputenv(name, home.path().toUtf8());
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    new QApplication(*argc, *argv);
    if (!onlyLoopback()) {
        std::fprintf(stderr,
                     "fuzz_config: a network interface other than loopback is up; run me in a namespace of my own:\n"
                     "  unshare -n sh -c 'ip link set lo up && exec %s ...'\n",
                     (*argv)[0]);
        std::exit(1);
    }
    Logger::setLevel(LOG_FATAL);
    g_configPath = QCoreApplication::applicationDirPath() + "/TCPconfig.json";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    {
        QFile file(g_configPath);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            std::abort();
        }
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    }

    // Read back the way the window reads it: text mode, and through UTF-8 text, which replaces
    // broken sequences and so can turn bytes that are not JSON into a document that is.
    QFile file(g_configPath);
    file.open(QIODevice::ReadOnly | QIODevice::Text);
    const QJsonDocument document = QJsonDocument::fromJson(QString::fromUtf8(file.readAll()).toUtf8());
    file.close();
    MainWindow window(nullptr, false);
    for (TCPSettingWidget* page : window.findChildren<TCPSettingWidget*>()) {
        const QJsonValue status = document.object().value(page->objectName()).toObject().value("Status");
        const bool open = page->findChild<QLabel*>("label_TCP")->property("status").toInt() == 1;
        if (open && status.toInt() != 1) {
            std::fprintf(
                stderr, "fuzz_config: %s opened with \"Status\" other than 1\n", qPrintable(page->objectName()));
            std::abort();
        }
    }
    return 0;
}
