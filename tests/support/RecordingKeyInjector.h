#pragma once

#include "KeyInjector.h"

#include <QStringList>
#include <atomic>
#include <mutex>

// Stands in for the desktop: writes down every key event in the order it comes, as text such as
// "char 65 down", "keys 17 down, 9 down, 17 up, 9 up", "tap 13", "pause 5" and "finish".
// Safe to read from the test's thread while a worker types.
class RecordingKeyInjector final : public KeyInjector
{
public:
    explicit RecordingKeyInjector(bool available = true);

    // While refusing, every event returns 0; the attempts and the pauses between them are
    // counted, not written down, so a worker that insists cannot fill the memory.
    void setRefusing(bool refusing);
    int refusedAttempts() const;

    bool isAvailable() const override;
    int sendCharacter(unsigned int code, bool down) override;
    int sendVirtualKeys(const QVector<VirtualKeyEvent>& events) override;
    void tapCharacterKey(char c) override;
    void pause(int milliseconds) override;
    void finishTyping() override;

    // Everything written down.
    QStringList events() const;
    // Only the key events: no pauses, no "finish".
    QStringList keyEvents() const;
    int finishCount() const;
    void clear();

private:
    void record(const QString& event);

    const bool m_available;
    std::atomic<bool> m_refusing { false };
    std::atomic<int> m_refusedAttempts { 0 };
    mutable std::mutex m_mutex;
    QStringList m_events;
};
