#include "HeldModifiers.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>

HeldModifiers::HeldModifiers(Display* display)
    : m_display(display)
{
}

void HeldModifiers::release()
{
    XkbStateRec state {};
    if (XkbGetState(m_display, XkbUseCoreKbd, &state) != Success) {
        return;
    }
    m_releasedKeys.clear();
    m_lockedMods = state.locked_mods;
    m_latchedMods = state.latched_mods;
    m_lockedGroup = state.locked_group;

    if (state.base_mods != 0) {
        char pressed[32];
        XQueryKeymap(m_display, pressed);
        XModifierKeymap* modmap = XGetModifierMapping(m_display);
        for (int mod = 0; modmap && mod < 8; ++mod) {
            if (!(state.base_mods & (1u << mod))) {
                continue;
            }
            for (int k = 0; k < modmap->max_keypermod; ++k) {
                const KeyCode keycode = modmap->modifiermap[mod * modmap->max_keypermod + k];
                const bool down = keycode != 0 && (pressed[keycode / 8] & (1 << (keycode % 8)));
                if (down && !m_releasedKeys.contains(keycode)) {
                    XTestFakeKeyEvent(m_display, keycode, False, CurrentTime);
                    m_releasedKeys.append(keycode);
                }
            }
        }
        if (modmap) {
            XFreeModifiermap(modmap);
        }
    }
    if (m_latchedMods) {
        XkbLatchModifiers(m_display, XkbUseCoreKbd, m_latchedMods, 0);
    }
    if (m_lockedMods) {
        XkbLockModifiers(m_display, XkbUseCoreKbd, m_lockedMods, 0);
    }
    if (m_lockedGroup) {
        XkbLockGroup(m_display, XkbUseCoreKbd, 0);
    }
    XSync(m_display, False);
    m_released = true;
}

void HeldModifiers::restore()
{
    if (!m_released) {
        return;
    }
    for (const KeyCode keycode : qAsConst(m_releasedKeys)) {
        XTestFakeKeyEvent(m_display, keycode, True, CurrentTime);
    }
    if (m_lockedGroup) {
        XkbLockGroup(m_display, XkbUseCoreKbd, static_cast<unsigned int>(m_lockedGroup));
    }
    if (m_lockedMods) {
        XkbLockModifiers(m_display, XkbUseCoreKbd, m_lockedMods, m_lockedMods);
    }
    if (m_latchedMods) {
        XkbLatchModifiers(m_display, XkbUseCoreKbd, m_latchedMods, m_latchedMods);
    }
    XSync(m_display, False);
    m_releasedKeys.clear();
    m_released = false;
}
