#include "FakeSystemTray.h"

#include <X11/Xlib.h>

FakeSystemTray::FakeSystemTray()
    : m_display(XOpenDisplay(nullptr))
    , m_opcode(XInternAtom(m_display, "_NET_SYSTEM_TRAY_OPCODE", False))
    , m_tray(XCreateSimpleWindow(m_display, DefaultRootWindow(m_display), 0, 0, 1, 1, 0, 0, 0))
{
    const Atom selection = XInternAtom(m_display, "_NET_SYSTEM_TRAY_S0", False);
    XSetSelectionOwner(m_display, selection, m_tray, CurrentTime);
    XEvent manager {};
    manager.xclient.type = ClientMessage;
    manager.xclient.window = DefaultRootWindow(m_display);
    manager.xclient.message_type = XInternAtom(m_display, "MANAGER", False);
    manager.xclient.format = 32;
    manager.xclient.data.l[0] = CurrentTime;
    manager.xclient.data.l[1] = static_cast<long>(selection);
    manager.xclient.data.l[2] = static_cast<long>(m_tray);
    XSendEvent(m_display, manager.xclient.window, False, StructureNotifyMask, &manager);
    XFlush(m_display);
}

FakeSystemTray::~FakeSystemTray()
{
    XCloseDisplay(m_display);
}

int FakeSystemTray::dockRequests()
{
    while (XPending(m_display) > 0) {
        XEvent event;
        XNextEvent(m_display, &event);
        // Opcode 0 is SYSTEM_TRAY_REQUEST_DOCK.
        if (event.type == ClientMessage && event.xclient.message_type == m_opcode && event.xclient.data.l[1] == 0) {
            // Into the tray, which is never mapped: the icon is no window of the screen's own.
            XReparentWindow(m_display, static_cast<Window>(event.xclient.data.l[2]), m_tray, 0, 0);
            ++m_dockRequests;
        }
    }
    return m_dockRequests;
}
