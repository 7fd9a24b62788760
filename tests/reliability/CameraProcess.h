#pragma once

#include <QByteArray>
#include <QProcess>
#include <QStringList>

// The camera simulator as a child process: starts it, learns its port, reads what it says it sent.
class CameraProcess
{
public:
    explicit CameraProcess(const QStringList& arguments);
    ~CameraProcess();

    // Starts the camera; a listening one is started only once it reports its port.
    bool start();
    quint16 listeningPort() const { return m_port; }

    // The frames sent so far, as the camera printed them (wrapped, escaped).
    QStringList sentFrames();

    void kill();
    // Asks it to stop and waits; true when it ended by itself with exit code 0.
    bool stop();

    QByteArray errors();

    // A loopback port that was free a moment ago.
    static quint16 freePort();

private:
    QProcess m_process;
    QStringList m_arguments;
    QByteArray m_output;
    QByteArray m_errors;
    quint16 m_port = 0;
};
