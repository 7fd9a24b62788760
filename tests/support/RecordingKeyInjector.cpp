#include "RecordingKeyInjector.h"

#include <QRegularExpression>
#include <thread>

int RecordingKeyInjector::sendCharacter(unsigned int code, bool down)
{
    return recordKey(QString("char %1 %2").arg(code).arg(down ? "down" : "up")) ? 1 : 0;
}

int RecordingKeyInjector::sendVirtualKeys(const QVector<VirtualKeyEvent>& events)
{
    QStringList keys;
    for (const VirtualKeyEvent& event : events)
        keys.append(QString("%1 %2").arg(event.virtualKey).arg(event.down ? "down" : "up"));
    return recordKey("keys " + keys.join(", ")) ? events.size() : 0;
}

void RecordingKeyInjector::tapCharacterKey(char c)
{
    recordKey(QString("tap %1").arg(static_cast<unsigned char>(c)));
}

void RecordingKeyInjector::pause(int milliseconds)
{
    record(QString("pause %1").arg(milliseconds));
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

QStringList RecordingKeyInjector::events() const
{
    // A deep copy: a shared one would hand the array between threads through Qt's reference
    // count, which ThreadSanitizer cannot see into.
    std::lock_guard<std::mutex> lock(m_mutex);
    return QStringList(m_events.begin(), m_events.end());
}

QStringList RecordingKeyInjector::keyEvents() const
{
    return events().filter(QRegularExpression("^(char|keys|tap) "));
}

bool RecordingKeyInjector::recordKey(const QString& event)
{
    if (refusals != 0) {
        refusals -= refusals > 0 ? 1 : 0;
        ++refusedAttempts;
        return false;
    }
    record(event);
    return true;
}

void RecordingKeyInjector::record(const QString& event)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_events.append(event);
}
