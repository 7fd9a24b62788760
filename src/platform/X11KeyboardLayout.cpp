#include "X11KeyboardLayout.h"

#include <X11/XKBlib.h>

X11KeyboardLayout::X11KeyboardLayout(Display* display)
    : m_display(display)
{
}

bool X11KeyboardLayout::reload(const QSet<KeyCode>& ignored)
{
    XkbDescPtr xkb = XkbGetMap(m_display, XkbKeyTypesMask | XkbKeySymsMask, XkbUseCoreKbd);
    if (!xkb) {
        return false;
    }
    m_positions.clear();
    m_firstSymbols.clear();
    m_keycodesWithoutSymbols.clear();

    for (int keycode = xkb->min_key_code; keycode <= xkb->max_key_code; ++keycode) {
        const auto code = static_cast<KeyCode>(keycode);
        if (XkbKeyNumSyms(xkb, code) == 0) {
            m_keycodesWithoutSymbols.append(code);
            continue;
        }
        // Translating with and without Shift tells what the key really yields at each level,
        // whatever its key type says about the levels above.
        for (const bool shifted : { false, true }) {
            unsigned int consumed = 0;
            KeySym keysym = NoSymbol;
            if (!XkbTranslateKeyCode(xkb, code, shifted ? ShiftMask : 0, &consumed, &keysym) || keysym == NoSymbol) {
                continue;
            }
            if (!shifted) {
                m_firstSymbols.insert(code, keysym);
            }
            if (ignored.contains(code)) {
                continue;
            }
            const auto known = m_positions.constFind(keysym);
            if (known == m_positions.constEnd() || (known->shifted && !shifted)) {
                m_positions.insert(keysym, KeyPosition { code, shifted });
            }
        }
    }
    XkbFreeKeyboard(xkb, 0, True);
    return true;
}

const X11KeyboardLayout::KeyPosition* X11KeyboardLayout::find(KeySym keysym) const
{
    const auto it = m_positions.constFind(keysym);
    return it == m_positions.constEnd() ? nullptr : &it.value();
}

KeySym X11KeyboardLayout::firstSymbol(KeyCode keycode) const
{
    return m_firstSymbols.value(keycode, NoSymbol);
}
