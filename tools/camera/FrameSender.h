#pragma once

#include "CameraOptions.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

class CameraConnection;
class FrameSource;

// Paces frames onto the connection: the rate, the cutting into chunks, and the line printed
// for each frame. A frame cut off by a lost connection goes again whole on the next one.
class FrameSender : public QObject
{
    Q_OBJECT

public:
    FrameSender(const CameraOptions& options,
                FrameSource* source,
                CameraConnection* connection,
                QObject* parent = nullptr);

    int framesSent() const { return m_sent; }

private slots:
    void wake();
    void step();
    void onConnected();
    void onLost();

private:
    void beginFrame();
    void sendBurst();
    void frameWritten();

    const CameraOptions& m_options;
    FrameSource* m_source;
    CameraConnection* m_connection;

    QTimer m_timer;
    QElapsedTimer m_clock;
    double m_nextDueMs = 0;

    QByteArray m_frame; // wrapped bytes of the frame under way
    int m_offset = 0;
    bool m_inFrame = false;
    bool m_finishing = false;
    int m_sent = 0;
};
