#include "RecordingKeyInjector.h"

#include <chrono>
#include <thread>

RecordingKeyInjector::RecordingKeyInjector(bool available)
    : m_available(available)
{
}

void RecordingKeyInjector::setRefusing(bool refusing)
{
    m_refusing = refusing;
}

int RecordingKeyInjector::refusedAttempts() const
{
    return m_refusedAttempts;
}

bool RecordingKeyInjector::isAvailable() const
{
    return m_available;
}

int RecordingKeyInjector::sendCharacter(unsigned int code, bool down)
{
    if (m_refusing) {
        ++m_refusedAttempts;
        return 0;
    }
    record(QString("char %1 %2").arg(code).arg(down ? "down" : "up"));
    return 1;
}

int RecordingKeyInjector::sendVirtualKeys(const QVector<VirtualKeyEvent>& events)
{
    if (m_refusing) {
        ++m_refusedAttempts;
        return 0;
    }
    QStringList keys;
    for (const VirtualKeyEvent& event : events) {
        keys.append(QString("%1 %2").arg(event.virtualKey).arg(event.down ? "down" : "up"));
    }
    record("keys " + keys.join(", "));
    return events.size();
}

void RecordingKeyInjector::tapCharacterKey(char c)
{
    record(QString("tap %1").arg(static_cast<int>(static_cast<unsigned char>(c))));
}

void RecordingKeyInjector::pause(int milliseconds)
{
    if (!m_refusing) {
        record(QString("pause %1").arg(milliseconds));
    }
    if (milliseconds > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    } else {
        std::this_thread::yield();
    }
}

void RecordingKeyInjector::finishTyping()
{
    record("finish");
}

QStringList RecordingKeyInjector::events() const
{
    // A list of its own: a shared copy would hand the array between threads through Qt's
    // reference count, which ThreadSanitizer cannot see into.
    std::lock_guard<std::mutex> lock(m_mutex);
    QStringList copy;
    copy.reserve(m_events.size());
    for (const QString& event : m_events) {
        copy.append(event);
    }
    return copy;
}

QStringList RecordingKeyInjector::keyEvents() const
{
    QStringList keys;
    for (const QString& event : events()) {
        if (!event.startsWith("pause") && event != "finish") {
            keys.append(event);
        }
    }
    return keys;
}

int RecordingKeyInjector::finishCount() const
{
    return events().count("finish");
}

void RecordingKeyInjector::clear()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_events.clear();
}

void RecordingKeyInjector::record(const QString& event)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_events.append(event);
}
