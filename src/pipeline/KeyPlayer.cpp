#include "KeyPlayer.h"

#include "KeyInjector.h"

KeyPlayer::KeyPlayer(KeyInjector& injector, int delayMs, const std::atomic<bool>& stopRequested)
    : m_injector(injector)
    , m_delayMs(delayMs)
    , m_stopRequested(stopRequested)
{
}

int KeyPlayer::delayForSpeed(int speed)
{
    return (speed >= 0 && speed <= 4) ? 5 - speed : 5;
}

void KeyPlayer::play(const QVector<KeyPlan::Action>& actions, Stop stop)
{
    for (const KeyPlan::Action& action : actions) {
        if (stop == Stop::BetweenSteps && m_stopRequested) {
            return;
        }
        switch (action.kind) {
        case KeyPlan::Action::Kind::CarriageReturn:
            m_injector.tapCharacterKey('\r');
            break;
        case KeyPlan::Action::Kind::Chord:
            pressChord(action.keys);
            break;
        case KeyPlan::Action::Kind::Character:
            typeCharacter(action.code);
            break;
        }
        m_injector.pause(m_delayMs);
    }
}

void KeyPlayer::typeCharacter(unsigned int code)
{
    for (const bool down : { true, false }) {
        while (m_injector.sendCharacter(code, down) == 0 && !m_stopRequested) {
            m_injector.pause(0);
        }
    }
}

void KeyPlayer::pressChord(const QVector<int>& keys)
{
    const int count = keys.size();
    QVector<KeyInjector::VirtualKeyEvent> events(2 * count);
    for (int k = 0; k < count; ++k) {
        events[k] = { keys[k], true };
        events[count + k] = { keys[k], false };
    }
    while (m_injector.sendVirtualKeys(events) == 0 && !m_stopRequested) {
        m_injector.pause(0);
    }
}
