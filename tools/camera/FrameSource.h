#pragma once

#include "CameraOptions.h"

#include <QByteArray>
#include <QList>
#include <QObject>

class QSocketNotifier;

// The frame texts in the order they go out: the given list pass after pass, or standard input
// line by line as it arrives.
class FrameSource : public QObject
{
    Q_OBJECT

public:
    FrameSource(const CameraOptions& options, QObject* parent = nullptr);

    bool hasFrame() const;
    QByteArray takeFrame();

    // Nothing more will ever come.
    bool isExhausted() const;

signals:
    // A frame became ready, or the source just ran out.
    void changed();

private slots:
    void readStandardInput();

private:
    void appendLine(QByteArray line);

    QList<QByteArray> m_frames;
    int m_repeat;
    int m_index = 0;
    int m_pass = 0;

    QSocketNotifier* m_stdinNotifier = nullptr;
    QByteArray m_partialLine;
    bool m_stdinEnded = false;
};
