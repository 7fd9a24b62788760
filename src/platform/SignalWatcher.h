#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGINT and SIGTERM into a Qt signal through a self-pipe, so a program stops from its
// event loop, between two pieces of work, instead of in the middle of one.
class SignalWatcher : public QObject
{
    Q_OBJECT

public:
    explicit SignalWatcher(QObject* parent = nullptr);

signals:
    void stopRequested(int signalNumber);

private slots:
    void readPipe();

private:
    QSocketNotifier* m_notifier = nullptr;
};
