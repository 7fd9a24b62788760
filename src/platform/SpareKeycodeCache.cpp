#include "SpareKeycodeCache.h"

#include <algorithm>
#include <thread>

SpareKeycodeCache::SpareKeycodeCache(Display* display)
    : m_display(display)
{
}

void SpareKeycodeCache::adopt(const X11KeyboardLayout& layout)
{
    QVector<Slot> kept;
    for (const Slot& slot : qAsConst(m_slots)) {
        const KeySym current = layout.firstSymbol(slot.keycode);
        if (current == NoSymbol) {
            kept.append(Slot { slot.keycode, NoSymbol, slot.lastUse });
        } else if (current == slot.keysym) {
            kept.append(slot);
        }
    }
    for (const KeyCode keycode : layout.keycodesWithoutSymbols()) {
        const bool known
            = std::any_of(kept.cbegin(), kept.cend(), [keycode](const Slot& s) { return s.keycode == keycode; });
        if (!known) {
            kept.append(Slot { keycode, NoSymbol, Clock::time_point() });
        }
    }
    m_slots = kept;
}

KeyCode SpareKeycodeCache::keycodeFor(KeySym keysym)
{
    if (m_slots.isEmpty()) {
        return 0;
    }
    for (const Slot& slot : qAsConst(m_slots)) {
        if (slot.keysym == keysym) {
            return slot.keycode;
        }
    }
    auto chosen = std::find_if(m_slots.begin(), m_slots.end(), [](const Slot& s) { return s.keysym == NoSymbol; });
    if (chosen == m_slots.end()) {
        chosen = std::min_element(
            m_slots.begin(), m_slots.end(), [](const Slot& a, const Slot& b) { return a.lastUse < b.lastUse; });
    }
    remap(*chosen, keysym);
    return chosen->keycode;
}

void SpareKeycodeCache::touch(KeyCode keycode)
{
    for (Slot& slot : m_slots) {
        if (slot.keycode == keycode) {
            slot.lastUse = Clock::now();
            return;
        }
    }
}

void SpareKeycodeCache::restoreAll()
{
    Clock::time_point latestUse;
    bool anyBound = false;
    for (const Slot& slot : qAsConst(m_slots)) {
        if (slot.keysym != NoSymbol) {
            anyBound = true;
            latestUse = std::max(latestUse, slot.lastUse);
        }
    }
    if (!anyBound) {
        return;
    }
    waitUntil(latestUse + kQuietBeforeRemap);
    KeySym empty[2] = { NoSymbol, NoSymbol };
    for (Slot& slot : m_slots) {
        if (slot.keysym != NoSymbol) {
            XChangeKeyboardMapping(m_display, slot.keycode, 2, empty, 1);
            slot.keysym = NoSymbol;
        }
    }
    XSync(m_display, False);
}

QSet<KeyCode> SpareKeycodeCache::ownedKeycodes() const
{
    QSet<KeyCode> owned;
    for (const Slot& slot : m_slots) {
        owned.insert(slot.keycode);
    }
    return owned;
}

bool SpareKeycodeCache::isOwnChange(int firstKeycode, int count) const
{
    if (count != 1) {
        return false;
    }
    return std::any_of(
        m_slots.cbegin(), m_slots.cend(), [firstKeycode](const Slot& s) { return s.keycode == firstKeycode; });
}

void SpareKeycodeCache::remap(Slot& slot, KeySym keysym)
{
    waitUntil(slot.lastUse + kQuietBeforeRemap);
    // Both levels carry the keysym, so Shift or a case rule cannot turn it into another one.
    KeySym symbols[2] = { keysym, keysym };
    XChangeKeyboardMapping(m_display, slot.keycode, 2, symbols, 1);
    XSync(m_display, False);
    // Every client has to re-read the map before a key on this slot means the new symbol.
    std::this_thread::sleep_for(kSettleBase + kSettlePerBinding);
    slot.keysym = keysym;
    slot.lastUse = Clock::now();
}

void SpareKeycodeCache::waitUntil(Clock::time_point moment)
{
    const auto now = Clock::now();
    if (moment > now) {
        std::this_thread::sleep_for(moment - now);
    }
}
