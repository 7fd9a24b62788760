#pragma once

#include "KeyPlan.h"

#include <atomic>

class KeyInjector;

// Sends a KeyPlan's actions through an injector, pausing after each step for the output speed.
// A refused event is tried again, but never past a request to stop.
class KeyPlayer
{
public:
    enum class Stop
    {
        // Only a refused event gives up: the rest of the text is still typed.
        InRetries,
        // Also between steps: nothing more is typed once a stop is asked for.
        BetweenSteps,
    };

    KeyPlayer(KeyInjector& injector, int delayMs, const std::atomic<bool>& stopRequested);

    void play(const QVector<KeyPlan::Action>& actions, Stop stop);

    // The pause after each step for an output speed of 0 (slowest) to 4; other speeds are slowest.
    static int delayForSpeed(int speed);

private:
    void typeCharacter(unsigned int code);
    void pressChord(const QVector<int>& keys);

    KeyInjector& m_injector;
    const int m_delayMs;
    const std::atomic<bool>& m_stopRequested;
};
