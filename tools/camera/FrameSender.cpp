#include "FrameSender.h"

#include "CameraConnection.h"
#include "EscapedText.h"
#include "FrameSource.h"

#include <cmath>
#include <cstdio>
#include <ctime>

namespace {

// To the microsecond: what a frame's latency is measured against.
double sinceEpochMs()
{
    timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

// Above this much unsent data the camera waits for the peer instead of buffering without end.
constexpr qint64 kMaxPendingBytes = 64 * 1024;

} // namespace

FrameSender::FrameSender(const CameraOptions& options,
                         FrameSource* source,
                         CameraConnection* connection,
                         QObject* parent)
    : QObject(parent)
    , m_options(options)
    , m_source(source)
    , m_connection(connection)
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    m_clock.start();
    connect(&m_timer, &QTimer::timeout, this, &FrameSender::step);
    connect(source, &FrameSource::changed, this, &FrameSender::wake);
    // Queued: a flush inside write() reports written bytes at once, and step() must not nest.
    connect(connection, &CameraConnection::drained, this, &FrameSender::wake, Qt::QueuedConnection);
    connect(connection, &CameraConnection::connected, this, &FrameSender::onConnected);
    connect(connection, &CameraConnection::lost, this, &FrameSender::onLost);
}

void FrameSender::wake()
{
    if (!m_timer.isActive()) {
        step();
    }
}

void FrameSender::onConnected()
{
    m_nextDueMs = double(m_clock.elapsed());
    wake();
}

void FrameSender::onLost()
{
    m_timer.stop();
    m_offset = 0;
}

void FrameSender::step()
{
    if (m_finishing || !m_connection->isConnected()) {
        return;
    }
    if (!m_inFrame) {
        if (m_source->isExhausted()) {
            m_finishing = true;
            m_connection->finish();
            return;
        }
        if (!m_source->hasFrame() || m_connection->pendingBytes() > kMaxPendingBytes) {
            return;
        }
        const double wait = m_nextDueMs - double(m_clock.elapsed());
        if (m_options.rate > 0 && wait > 0) {
            m_timer.start(int(std::ceil(wait)));
            return;
        }
        beginFrame();
    }
    if (m_options.rate == 0 && m_options.chunk == 0) {
        sendBurst();
        return;
    }

    const int size = m_options.chunk > 0 ? m_options.chunk : m_frame.size();
    const QByteArray piece = m_frame.mid(m_offset, size);
    m_offset += size;
    m_connection->write(piece);
    if (m_offset < m_frame.size()) {
        m_timer.start(m_options.chunkGapMs);
        return;
    }
    frameWritten();
    std::fflush(stdout);
    m_timer.start(0);
}

void FrameSender::sendBurst()
{
    // Without a rate whole frames go out back to back in one write, as from a reader emptying its
    // queue, until the connection holds enough unsent data.
    QByteArray burst;
    for (;;) {
        burst += m_frame;
        frameWritten();
        if (burst.size() >= kMaxPendingBytes || !m_source->hasFrame()) {
            break;
        }
        beginFrame();
    }
    m_connection->write(burst);
    std::fflush(stdout);
    m_timer.start(0);
}

void FrameSender::beginFrame()
{
    QByteArray body = m_source->takeFrame();
    body.replace("{seq}", QByteArray::number(m_sent + 1).rightJustified(6, '0'));
    m_frame = m_options.start + body + m_options.end;
    m_offset = 0;
    m_inFrame = true;
}

void FrameSender::frameWritten()
{
    m_inFrame = false;
    ++m_sent;
    if (!m_options.quiet) {
        std::printf(
            "%d %.3f %s\n", m_sent, sinceEpochMs(), qPrintable(EscapedText::encode(m_frame)));
    }
    if (m_options.rate > 0) {
        const double now = double(m_clock.elapsed());
        const double period = 1000.0 / m_options.rate;
        m_nextDueMs += period;
        // After a stall (no peer, a slow peer) go on at the rate instead of catching up in a burst.
        if (m_nextDueMs < now - period) {
            m_nextDueMs = now;
        }
    }
}
