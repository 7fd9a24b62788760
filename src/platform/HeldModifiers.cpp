#include "HeldModifiers.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XTest.h>

HeldModifiers::HeldModifiers(Display* display)
    : m_display(display)
{
    int event = 0;
    int error = 0;
    // From XInput 2.1 on, raw events come also while another client grabs the keyboard.
    int major = 2;
    int minor = 2;
    // Without XInput 2 a let-go key cannot be seen, and every released key is put back.
    if (!XQueryExtension(display, "XInputExtension", &m_inputOpcode, &event, &error)
        || XIQueryVersion(display, &major, &minor) != Success) {
        m_inputOpcode = 0;
    }
}

void HeldModifiers::release()
{
    XkbStateRec state {};
    if (XkbGetState(m_display, XkbUseCoreKbd, &state) != Success) {
        return;
    }
    m_releasedKeys.clear();
    m_ownReleases.clear();
    m_lockedMods = state.locked_mods;
    m_latchedMods = state.latched_mods;
    m_lockedGroup = state.locked_group;

    if (state.base_mods != 0) {
        char pressed[32];
        XQueryKeymap(m_display, pressed);
        watchReleases(true);
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
                    m_ownReleases[keycode] = 1;
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

void HeldModifiers::noteOwnRelease(KeyCode keycode)
{
    const auto own = m_ownReleases.find(keycode);
    if (own != m_ownReleases.end()) {
        ++own.value();
    }
}

void HeldModifiers::restore()
{
    if (!m_released) {
        return;
    }
    const QMap<KeyCode, int> seen = takeReleasesSeen();
    for (const KeyCode keycode : qAsConst(m_releasedKeys)) {
        if (seen.value(keycode) <= m_ownReleases.value(keycode)) {
            XTestFakeKeyEvent(m_display, keycode, True, CurrentTime);
        }
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

void HeldModifiers::watchReleases(bool on)
{
    if (m_inputOpcode == 0) {
        return;
    }
    unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
    if (on) {
        XISetMask(bits, XI_RawKeyRelease);
    }
    XIEventMask mask { XIAllMasterDevices, sizeof bits, bits };
    XISelectEvents(m_display, DefaultRootWindow(m_display), &mask, 1);
}

QMap<KeyCode, int> HeldModifiers::takeReleasesSeen()
{
    QMap<KeyCode, int> seen;
    if (m_inputOpcode == 0) {
        return seen;
    }
    // Stopped first: after the round trip every release seen is in the queue, and none comes later.
    watchReleases(false);
    XSync(m_display, False);
    XEvent event;
    while (XCheckTypedEvent(m_display, GenericEvent, &event)) {
        XGenericEventCookie* cookie = &event.xcookie;
        if (cookie->extension != m_inputOpcode || !XGetEventData(m_display, cookie)) {
            continue;
        }
        if (cookie->evtype == XI_RawKeyRelease) {
            ++seen[static_cast<KeyCode>(static_cast<XIRawEvent*>(cookie->data)->detail)];
        }
        XFreeEventData(m_display, cookie);
    }
    return seen;
}
