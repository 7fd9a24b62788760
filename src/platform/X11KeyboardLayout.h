#pragma once

#include <QHash>
#include <QSet>
#include <QVector>
#include <X11/Xlib.h>

// The user's keyboard map as the server holds it: where each keysym sits on the first two
// levels of the first group, and which keycodes carry no symbol at all.
class X11KeyboardLayout
{
public:
    struct KeyPosition
    {
        KeyCode keycode = 0;
        bool shifted = false;
    };

    explicit X11KeyboardLayout(Display* display);

    // Reads the map again. Keycodes in `ignored` are left out of the keysym lookup (their
    // symbols are ours, not the user's). False when the server gave no map.
    bool reload(const QSet<KeyCode>& ignored);

    // The key that yields this keysym with no modifier, else with Shift; null when neither does.
    const KeyPosition* find(KeySym keysym) const;

    // The keysym on the first level of this keycode; NoSymbol when it has none.
    KeySym firstSymbol(KeyCode keycode) const;

    const QVector<KeyCode>& keycodesWithoutSymbols() const { return m_keycodesWithoutSymbols; }

private:
    Display* m_display;
    QHash<KeySym, KeyPosition> m_positions;
    QHash<KeyCode, KeySym> m_firstSymbols;
    QVector<KeyCode> m_keycodesWithoutSymbols;
};
