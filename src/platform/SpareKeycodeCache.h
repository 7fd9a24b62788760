#pragma once

#include "X11KeyboardLayout.h"

#include <QSet>
#include <QVector>
#include <X11/Xlib.h>
#include <chrono>

// Keycodes that carry no symbol, lent out to keysyms the user's map lacks. A binding stays while
// typing goes on, the least recently used one gives way when all are taken, and all are given
// back when typing goes idle. Every remap makes each X client re-read its keymap, and a key that
// meets a client still busy with that comes out lost or wrong, hence the waits around remaps.
class SpareKeycodeCache
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds kSettleBase { 20 };
    static constexpr std::chrono::milliseconds kSettlePerBinding { 2 };
    static constexpr std::chrono::milliseconds kQuietBeforeRemap { 100 };

    explicit SpareKeycodeCache(Display* display);

    // Brings the slots in line with a freshly read map: a slot whose symbol is no longer the one
    // we bound was taken over and is dropped; keycodes without symbols become free slots.
    void adopt(const X11KeyboardLayout& layout);

    // The keycode bound to this keysym, binding a slot when none is; 0 when there is no slot.
    KeyCode keycodeFor(KeySym keysym);

    // A key event went out on this keycode.
    void touch(KeyCode keycode);

    // Gives every bound slot back its empty mapping.
    void restoreAll();

    QSet<KeyCode> ownedKeycodes() const;
    int slotCount() const { return m_slots.size(); }

    // Whether a mapping change over these keycodes is one we made.
    bool isOwnChange(int firstKeycode, int count) const;

private:
    struct Slot
    {
        KeyCode keycode = 0;
        KeySym keysym = NoSymbol;
        Clock::time_point lastUse;
    };

    void remap(Slot& slot, KeySym keysym);
    static void waitUntil(Clock::time_point moment);

    Display* m_display;
    QVector<Slot> m_slots;
};
