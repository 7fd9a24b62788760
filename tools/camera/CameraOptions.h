#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QString>

class QCoreApplication;

// Everything the command line decides. parse() fills it or says plainly what is wrong.
struct CameraOptions
{
    enum class Role
    {
        Client,
        Server
    };

    Role role = Role::Client;
    QHostAddress host;
    quint16 port = 0;

    QByteArray start = "[";
    QByteArray end = "]";

    QList<QByteArray> frames; // from arguments or a file; empty when reading standard input
    bool fromStdin = false;

    double rate = 10.0; // frames per second; 0 sends as fast as the connection takes them
    int chunk = 0;      // bytes per write; 0 writes each frame whole
    int chunkGapMs = 2; // pause between the writes of one frame
    int repeat = 1;     // passes over the frames; 0 repeats until stopped
    bool reconnect = false;
    int intervalMs = 1000; // between connection attempts, or before waiting for the next peer
    bool quiet = false;

    // Returns false with *error set when the arguments cannot work.
    static bool parse(const QCoreApplication& app, CameraOptions* options, QString* error);
};
