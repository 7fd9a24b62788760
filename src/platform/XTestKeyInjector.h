#pragma once

#include "KeyInjector.h"

#include <QByteArray>
#include <QHash>
#include <memory>

struct _XDisplay;
class HeldModifiers;
class SpareKeycodeCache;
class X11KeyboardLayout;

// Types into the window that has the X input focus through the XTest extension, on the user's
// own keyboard map. Xlib is not thread-safe: make, use and destroy one on a single thread.
class XTestKeyInjector final : public KeyInjector
{
public:
    // Connects to the named display, or to $DISPLAY when the name is empty.
    explicit XTestKeyInjector(const QByteArray& displayName = QByteArray());
    ~XTestKeyInjector() override;

    XTestKeyInjector(const XTestKeyInjector&) = delete;
    XTestKeyInjector& operator=(const XTestKeyInjector&) = delete;

    bool isAvailable() const override;
    int sendCharacter(unsigned int code, bool down) override;
    int sendVirtualKeys(const QVector<VirtualKeyEvent>& events) override;
    void tapCharacterKey(char c) override;
    void pause(int milliseconds) override;
    void finishTyping() override;

    // The keysym that types the character with this code (0-255).
    static unsigned long keysymForCharacter(unsigned int code);
    // The keysym of a VK_* value; 0 for a value that names no key.
    static unsigned long keysymForVirtualKey(int virtualKey);

private:
    struct Press
    {
        unsigned char keycode = 0;
        bool shifted = false;
    };

    void beginTyping();
    void takeMappingChanges();
    void reloadLayout();
    bool locate(unsigned long keysym, Press& press);
    void sendPress(const Press& press, bool down);
    void fakeKeyEvent(unsigned char keycode, bool down);

    _XDisplay* m_display = nullptr;
    int m_xkbEventBase = 0;
    std::unique_ptr<X11KeyboardLayout> m_layout;
    std::unique_ptr<SpareKeycodeCache> m_spares;
    std::unique_ptr<HeldModifiers> m_heldModifiers;
    QHash<unsigned int, Press> m_pressedCharacters;
    unsigned char m_shiftKeycode = 0;
    bool m_typing = false;
    bool m_layoutStale = true;
    bool m_warnedNoSpare = false;
};
