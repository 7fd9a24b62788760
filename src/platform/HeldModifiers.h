#pragma once

#include <QVector>
#include <X11/Xlib.h>

// Modifiers that are active when typing starts (a held Shift, Caps Lock, a latched or locked
// group) would change what the typed keys yield, so they are let go for the typing job and put
// back afterwards.
class HeldModifiers
{
public:
    explicit HeldModifiers(Display* display);

    // Reads the keyboard state and lets go of every active modifier.
    void release();

    // Puts back what release() let go of; nothing when there is nothing to put back.
    void restore();

private:
    Display* m_display;
    QVector<KeyCode> m_releasedKeys;
    unsigned int m_lockedMods = 0;
    unsigned int m_latchedMods = 0;
    int m_lockedGroup = 0;
    bool m_released = false;
};
