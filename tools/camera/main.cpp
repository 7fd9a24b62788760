#include "CameraConnection.h"
#include "CameraOptions.h"
#include "FrameSender.h"
#include "FrameSource.h"
#include "SignalWatcher.h"

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName("tapwright-camera");

    CameraOptions options;
    QString error;
    if (!CameraOptions::parse(app, &options, &error)) {
        std::fprintf(stderr, "tapwright-camera: %s\nTry 'tapwright-camera --help'.\n", qPrintable(error));
        return 2;
    }

    SignalWatcher stopSignals;
    FrameSource source(options);
    CameraConnection connection(options);
    FrameSender sender(options, &source, &connection);

    QObject::connect(&stopSignals, &SignalWatcher::stopRequested, &app, [&](int number) {
        std::fprintf(stderr, "tapwright-camera: stopped by signal %d after %d frames\n", number, sender.framesSent());
        app.exit(0);
    });
    QObject::connect(&connection, &CameraConnection::failed, &app, [&](const QString& message) {
        std::fprintf(stderr, "tapwright-camera: %s (%d frames sent)\n", qPrintable(message), sender.framesSent());
        app.exit(1);
    });
    QObject::connect(&connection, &CameraConnection::finished, &app, [&] {
        std::fprintf(stderr, "tapwright-camera: done, %d frames sent\n", sender.framesSent());
        app.exit(0);
    });

    if (!connection.start(&error)) {
        std::fprintf(stderr, "tapwright-camera: %s\n", qPrintable(error));
        return 1;
    }
    return app.exec();
}
