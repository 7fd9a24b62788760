#pragma once

#include <QVector>

// What typing needs from the desktop: character events, batches of virtual keys sent together,
// a tap of the key that yields a character, and a pause. Results count the events that went in;
// 0 means none did.
class KeyInjector
{
public:
    struct VirtualKeyEvent
    {
        int virtualKey; // one of the VK_* values of the chord names
        bool down;
    };

    virtual ~KeyInjector() = default;

    // False when there is nothing to type into (no display, no XTest): every event is refused.
    virtual bool isAvailable() const = 0;

    // One key event for the character with this code (0-255), down or up.
    virtual int sendCharacter(unsigned int code, bool down) = 0;

    // All events in one go, with no other input between them.
    virtual int sendVirtualKeys(const QVector<VirtualKeyEvent>& events) = 0;

    // Press and release the key that yields this character.
    virtual void tapCharacterKey(char c) = 0;

    // Wait this many milliseconds; 0 only yields.
    virtual void pause(int milliseconds) = 0;

    // Typing has gone idle: give back whatever was borrowed from the desktop for it.
    virtual void finishTyping() = 0;
};
