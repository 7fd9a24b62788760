#pragma once

#include "KeyInjector.h"

#include <QStringList>
#include <atomic>
#include <mutex>

// Stands in for the desktop: writes down every key event in order, as "char 65 down",
// "keys 17 down, 9 down, 17 up, 9 up", "tap 13", "pause 5" or "finish". Safe to read while a
// worker types. Refused events return 0 and are only counted; pauses are always written down.
class RecordingKeyInjector final : public KeyInjector
{
public:
    std::atomic<bool> available { true };
    // The next this many key events are refused; -1 refuses all of them.
    std::atomic<int> refusals { 0 };
    std::atomic<int> refusedAttempts { 0 };

    bool isAvailable() const override { return available; }
    int sendCharacter(unsigned int code, bool down) override;
    int sendVirtualKeys(const QVector<VirtualKeyEvent>& events) override;
    void tapCharacterKey(char c) override;
    void pause(int milliseconds) override;
    void finishTyping() override { record("finish"); }

    QStringList events() const;
    // Without pauses and "finish".
    QStringList keyEvents() const;

private:
    // A key event: written down, or refused and only counted.
    bool recordKey(const QString& event);
    void record(const QString& event);

    mutable std::mutex m_mutex;
    QStringList m_events;
};
