#pragma once

#include <QMap>
#include <QVector>
#include <X11/Xlib.h>

// Modifiers that are active when typing starts (a held Shift, Caps Lock, a latched or locked
// group) would change what the typed keys yield, so they are let go for the typing job and put
// back afterwards. A held key the user lets go of during the job stays up.
class HeldModifiers
{
public:
    explicit HeldModifiers(Display* display);

    // Reads the keyboard state and lets go of every active modifier.
    void release();

    // The typing job let go of this key itself; such releases are not the user's.
    void noteOwnRelease(KeyCode keycode);

    // Puts back what release() let go of and the user still holds; nothing when there is nothing
    // to put back.
    void restore();

private:
    // Releases of each let-go key seen since release(), whoever made them.
    QMap<KeyCode, int> takeReleasesSeen();
    void watchReleases(bool on);

    Display* m_display;
    int m_inputOpcode = 0;
    QVector<KeyCode> m_releasedKeys;
    QMap<KeyCode, int> m_ownReleases;
    unsigned int m_lockedMods = 0;
    unsigned int m_latchedMods = 0;
    int m_lockedGroup = 0;
    bool m_released = false;
};
