#include "FrameSource.h"

#include "EscapedText.h"

#include <QSocketNotifier>
#include <cerrno>
#include <cstdio>
#include <unistd.h>

FrameSource::FrameSource(const CameraOptions& options, QObject* parent)
    : QObject(parent)
    , m_frames(options.frames)
    , m_repeat(options.repeat)
{
    if (options.fromStdin) {
        m_stdinNotifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
        connect(m_stdinNotifier, &QSocketNotifier::activated, this, &FrameSource::readStandardInput);
    }
}

bool FrameSource::hasFrame() const
{
    if (m_stdinNotifier) {
        return !m_frames.isEmpty();
    }
    return m_repeat == 0 || m_pass < m_repeat;
}

QByteArray FrameSource::takeFrame()
{
    if (m_stdinNotifier) {
        return m_frames.takeFirst();
    }
    const QByteArray frame = m_frames.at(m_index);
    if (++m_index == m_frames.size()) {
        m_index = 0;
        ++m_pass;
    }
    return frame;
}

bool FrameSource::isExhausted() const
{
    return !hasFrame() && (!m_stdinNotifier || m_stdinEnded);
}

void FrameSource::readStandardInput()
{
    char buffer[4096];
    const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    if (count > 0) {
        m_partialLine.append(buffer, int(count));
        int newline;
        while ((newline = m_partialLine.indexOf('\n')) >= 0) {
            appendLine(m_partialLine.left(newline));
            m_partialLine.remove(0, newline + 1);
        }
    } else {
        appendLine(m_partialLine);
        m_partialLine.clear();
        m_stdinEnded = true;
        m_stdinNotifier->setEnabled(false);
    }
    emit changed();
}

void FrameSource::appendLine(QByteArray line)
{
    if (line.endsWith('\r')) {
        line.chop(1);
    }
    if (line.isEmpty()) {
        return;
    }
    QByteArray frame;
    QString error;
    if (!EscapedText::decode(QString::fromUtf8(line), &frame, &error)) {
        std::fprintf(stderr, "tapwright-camera: %s; sent as it stands\n", qPrintable(error));
        frame = line;
    }
    m_frames.append(frame);
}
