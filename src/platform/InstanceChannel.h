#pragma once

#include <QObject>
#include <QString>

class QLocalServer;

// How a later start reaches the instance that runs: a local socket beside the instance marker, on
// which the running window is asked to come to the front before the later start ends.
class InstanceChannel : public QObject
{
    Q_OBJECT

public:
    explicit InstanceChannel(QObject* parent = nullptr);

    // Listens under the name's socket. The caller holds the instance marker, so a socket left by an
    // instance that died is stale and is replaced. False when the socket cannot be made.
    bool listen(const QString& name);

    // Asks the instance listening under name to come to the front and waits until it has, for at
    // most timeoutMs. False when none answered, as with a headless instance, which does not listen.
    static bool askToRaise(const QString& name, int timeoutMs);

    // The marker's path of InstanceLock, with ".socket" for ".lock".
    static QString socketPath(const QString& name);

signals:
    // The slot brings the window up; the asking start is answered once it has returned.
    void raiseRequested();

private:
    void serveNext();

    QLocalServer* m_server;
};
