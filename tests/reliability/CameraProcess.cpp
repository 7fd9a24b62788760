#include "CameraProcess.h"

#include <QDeadlineTimer>
#include <QRegularExpression>
#include <QTcpServer>

namespace {

constexpr int kStartTimeoutMs = 10000;

} // namespace

CameraProcess::CameraProcess(const QStringList& arguments)
    : m_arguments(arguments)
{
}

CameraProcess::~CameraProcess()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(kStartTimeoutMs);
    }
}

bool CameraProcess::start()
{
    m_process.start(QStringLiteral(TAPWRIGHT_CAMERA_PATH), m_arguments);
    if (!m_process.waitForStarted(kStartTimeoutMs)) {
        return false;
    }
    if (!m_arguments.contains(QStringLiteral("--listen"))) {
        return true;
    }
    const QRegularExpression listening(QStringLiteral("listening on [^ ]+:(\\d+)"));
    QDeadlineTimer deadline(kStartTimeoutMs);
    while (!deadline.hasExpired() && m_process.state() == QProcess::Running) {
        m_process.waitForReadyRead(50);
        m_errors += m_process.readAllStandardError();
        const QRegularExpressionMatch match = listening.match(QString::fromUtf8(m_errors));
        if (match.hasMatch()) {
            m_port = quint16(match.captured(1).toUInt());
            return true;
        }
    }
    return false;
}

QStringList CameraProcess::sentFrames()
{
    m_output += m_process.readAllStandardOutput();
    QStringList frames;
    for (const QString& line : QString::fromUtf8(m_output).split('\n', Qt::SkipEmptyParts)) {
        frames.append(line.section(' ', 2));
    }
    return frames;
}

void CameraProcess::kill()
{
    m_process.kill();
    m_process.waitForFinished(kStartTimeoutMs);
    m_output += m_process.readAllStandardOutput();
}

bool CameraProcess::stop()
{
    m_process.terminate();
    const bool ended = m_process.state() == QProcess::NotRunning || m_process.waitForFinished(kStartTimeoutMs);
    m_output += m_process.readAllStandardOutput();
    return ended && m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0;
}

QByteArray CameraProcess::errors()
{
    m_errors += m_process.readAllStandardError();
    return m_errors;
}

quint16 CameraProcess::freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    return probe.serverPort();
}
