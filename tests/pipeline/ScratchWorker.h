#pragma once

#include "DataThread.h"

#include <QByteArrayList>
#include <QStringList>
#include <QTemporaryDir>

// A worker writing into a scratch directory of its own, and what it left there and in the log.
class ScratchWorker
{
public:
    explicit ScratchWorker(const QString& start = "#", const QString& end = "$")
    {
        thread.setStartEndChar(start, end);
        thread.setFileDir(m_dir.path());
    }
    ~ScratchWorker() { thread.stopThread(); }

    // Pushes in one call and waits until the worker has taken every byte out, so the next push
    // lands in a chunk of its own.
    bool push(const QByteArray& bytes);
    // The frames of the files here, or in dir, oldest first; a file without the prefix is given whole.
    QByteArrayList frames(const QString& dir = QString()) const;
    QString dir() const { return m_dir.path(); }

    // Sends the log to a scratch file; logSince() gives the messages written after the last call.
    static bool openLog();
    static QStringList logSince();

    DataThread thread;

private:
    QTemporaryDir m_dir;
};
