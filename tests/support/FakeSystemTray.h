#pragma once

struct _XDisplay;

// A system tray for tests, as a panel gives one: on an X connection of its own it owns
// _NET_SYSTEM_TRAY_S0, announces itself with MANAGER on the root window and takes dock requests.
// It goes when destroyed, as when the panel quits.
class FakeSystemTray
{
public:
    FakeSystemTray();
    ~FakeSystemTray();

    FakeSystemTray(const FakeSystemTray&) = delete;
    FakeSystemTray& operator=(const FakeSystemTray&) = delete;

    // How many icons asked to dock so far.
    int dockRequests();

private:
    _XDisplay* m_display;
    unsigned long m_opcode;
    unsigned long m_tray;
    int m_dockRequests = 0;
};
