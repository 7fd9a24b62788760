#include "XTestKeyInjector.h"

#include "HeldModifiers.h"
#include "SpareKeycodeCache.h"
#include "X11KeyboardLayout.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <chrono>
#include <thread>

XTestKeyInjector::XTestKeyInjector(const QByteArray& displayName)
{
    Display* display = XOpenDisplay(displayName.isEmpty() ? nullptr : displayName.constData());
    if (!display) {
        return;
    }
    int event = 0;
    int error = 0;
    int major = 0;
    int minor = 0;
    int xkbOpcode = 0;
    int xkbMajor = XkbMajorVersion;
    int xkbMinor = XkbMinorVersion;
    if (!XTestQueryExtension(display, &event, &error, &major, &minor)
        || !XkbQueryExtension(display, &xkbOpcode, &m_xkbEventBase, &error, &xkbMajor, &xkbMinor)) {
        XCloseDisplay(display);
        return;
    }
    // A client holding a server grab must not stall the worker.
    XTestGrabControl(display, True);
    const unsigned int mapEvents = XkbMapNotifyMask | XkbNewKeyboardNotifyMask;
    XkbSelectEvents(display, XkbUseCoreKbd, mapEvents, mapEvents);

    m_display = display;
    m_layout = std::make_unique<X11KeyboardLayout>(display);
    m_spares = std::make_unique<SpareKeycodeCache>(display);
    m_heldModifiers = std::make_unique<HeldModifiers>(display);
}

XTestKeyInjector::~XTestKeyInjector()
{
    if (m_display) {
        finishTyping();
        XCloseDisplay(m_display);
    }
}

bool XTestKeyInjector::isAvailable() const
{
    return m_display != nullptr;
}

int XTestKeyInjector::sendCharacter(unsigned int code, bool down)
{
    if (!m_display) {
        return 0;
    }
    beginTyping();
    Press press;
    const auto pressed = m_pressedCharacters.find(code);
    if (!down && pressed != m_pressedCharacters.end()) {
        press = pressed.value();
        m_pressedCharacters.erase(pressed);
    } else if (!locate(keysymForCharacter(code), press)) {
        // Nothing on this keyboard can yield it; the event is spent all the same.
        return 1;
    } else if (down) {
        m_pressedCharacters.insert(code, press);
    }
    sendPress(press, down);
    XFlush(m_display);
    return 1;
}

int XTestKeyInjector::sendVirtualKeys(const QVector<VirtualKeyEvent>& events)
{
    if (!m_display) {
        return 0;
    }
    beginTyping();
    // Binding a spare keycode waits for the server, so every key is found before the first goes out.
    QVector<Press> presses;
    presses.reserve(events.size());
    for (const VirtualKeyEvent& event : events) {
        Press press;
        const unsigned long keysym = keysymForVirtualKey(event.virtualKey);
        if (keysym == 0 || !locate(keysym, press)) {
            press.keycode = 0;
        }
        presses.append(press);
    }
    for (int i = 0; i < events.size(); ++i) {
        if (presses[i].keycode != 0) {
            fakeKeyEvent(presses[i].keycode, events[i].down);
            m_spares->touch(presses[i].keycode);
        }
    }
    XFlush(m_display);
    return events.size();
}

void XTestKeyInjector::tapCharacterKey(char c)
{
    if (!m_display) {
        return;
    }
    beginTyping();
    Press press;
    if (!locate(keysymForCharacter(static_cast<unsigned char>(c)), press)) {
        return;
    }
    // The key alone, whatever level the character sits on.
    press.shifted = false;
    sendPress(press, true);
    sendPress(press, false);
    XFlush(m_display);
}

void XTestKeyInjector::pause(int milliseconds)
{
    if (milliseconds <= 0) {
        std::this_thread::yield();
    } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }
}

void XTestKeyInjector::finishTyping()
{
    if (!m_display || !m_typing) {
        return;
    }
    for (auto it = m_pressedCharacters.cbegin(); it != m_pressedCharacters.cend(); ++it) {
        sendPress(it.value(), false);
    }
    m_pressedCharacters.clear();
    m_spares->restoreAll();
    m_heldModifiers->restore();
    m_typing = false;
}

unsigned long XTestKeyInjector::keysymForCharacter(unsigned int code)
{
    switch (code) {
    case 8:
        return XK_BackSpace;
    case 9:
        return XK_Tab;
    case 10:
        return XK_Linefeed;
    case 13:
        return XK_Return;
    case 27:
        return XK_Escape;
    case 127:
        return XK_Delete;
    default:
        break;
    }
    if ((code >= 0x20 && code <= 0x7e) || (code >= 0xa0 && code <= 0xff)) {
        return code;
    }
    return 0x01000000 + code;
}

unsigned long XTestKeyInjector::keysymForVirtualKey(int virtualKey)
{
    switch (virtualKey) {
    case 9:
        return XK_Tab;
    case 16:
        return XK_Shift_L;
    case 17:
        return XK_Control_L;
    case 18:
        return XK_Alt_L;
    case 37:
        return XK_Left;
    case 38:
        return XK_Up;
    case 39:
        return XK_Right;
    case 40:
        return XK_Down;
    default:
        return 0;
    }
}

void XTestKeyInjector::beginTyping()
{
    if (m_typing) {
        return;
    }
    m_typing = true;
    // The user may have switched layouts while nothing was typed.
    takeMappingChanges();
    reloadLayout();
    m_heldModifiers->release();
}

void XTestKeyInjector::takeMappingChanges()
{
    // The key releases the held modifiers watch for stay in the queue for them.
    const auto notGeneric = [](Display*, XEvent* event, XPointer) -> Bool { return event->type != GenericEvent; };
    XEvent event;
    while (XCheckIfEvent(m_display, &event, notGeneric, nullptr)) {
        if (event.type == MappingNotify) {
            XRefreshKeyboardMapping(&event.xmapping);
            if (event.xmapping.request != MappingKeyboard
                || !m_spares->isOwnChange(event.xmapping.first_keycode, event.xmapping.count)) {
                m_layoutStale = true;
            }
        } else if (event.type == m_xkbEventBase) {
            const auto* xkbEvent = reinterpret_cast<const XkbEvent*>(&event);
            if (xkbEvent->any.xkb_type == XkbNewKeyboardNotify
                || (xkbEvent->any.xkb_type == XkbMapNotify
                    && !m_spares->isOwnChange(xkbEvent->map.first_key_sym, xkbEvent->map.num_key_syms))) {
                m_layoutStale = true;
            }
        }
    }
}

void XTestKeyInjector::reloadLayout()
{
    if (!m_layout->reload(m_spares->ownedKeycodes())) {
        return;
    }
    m_spares->adopt(*m_layout);
    const X11KeyboardLayout::KeyPosition* shift = m_layout->find(XK_Shift_L);
    if (!shift) {
        shift = m_layout->find(XK_Shift_R);
    }
    m_shiftKeycode = shift ? shift->keycode : 0;
    m_layoutStale = false;
}

bool XTestKeyInjector::locate(unsigned long keysym, Press& press)
{
    takeMappingChanges();
    if (m_layoutStale) {
        reloadLayout();
    }
    const X11KeyboardLayout::KeyPosition* position = m_layout->find(keysym);
    if (position && (!position->shifted || m_shiftKeycode != 0)) {
        press.keycode = position->keycode;
        press.shifted = position->shifted;
        return true;
    }
    const KeyCode spare = m_spares->keycodeFor(keysym);
    if (spare == 0) {
        if (!m_warnedNoSpare) {
            qWarning("No spare keycode to type keysym 0x%lx", keysym);
            m_warnedNoSpare = true;
        }
        return false;
    }
    press.keycode = spare;
    press.shifted = false;
    return true;
}

void XTestKeyInjector::fakeKeyEvent(unsigned char keycode, bool down)
{
    XTestFakeKeyEvent(m_display, keycode, down ? True : False, CurrentTime);
    if (!down) {
        m_heldModifiers->noteOwnRelease(keycode);
    }
}

void XTestKeyInjector::sendPress(const Press& press, bool down)
{
    if (down && press.shifted) {
        fakeKeyEvent(m_shiftKeycode, true);
    }
    fakeKeyEvent(press.keycode, down);
    if (!down && press.shifted) {
        fakeKeyEvent(m_shiftKeycode, false);
    }
    m_spares->touch(press.keycode);
}
