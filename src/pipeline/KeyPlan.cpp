#include "KeyPlan.h"

#include "Utf8Decoder.h"

#include <QStringList>
#include <algorithm>
#include <utility>

const QMap<QString, int> KeyPlan::keyNames = {
    { "VK_ALT", 18 },   { "VK_SHIFT", 16 }, { "VK_CTRL", 17 }, { "VK_LEFT", 37 },
    { "VK_RIGHT", 39 }, { "VK_DOWN", 40 },  { "VK_UP", 38 },   { "VK_TAB", 9 },
};

KeyPlan::KeyPlan(Encoding encoding)
    : m_encoding(encoding)
    , m_decoder(makeUtf8Decoder())
{
}

KeyPlan::~KeyPlan() = default;

KeyPlan::Typing KeyPlan::feed(const QByteArray& bytes)
{
    if (m_encoding == Encoding::Utf8) {
        const QString text = std::exchange(m_held, QString()) + m_decoder->toUnicode(bytes);
        const int lastOpen = heldChordStart(text);
        m_held = lastOpen >= 0 ? text.mid(lastOpen) : QString();
        return typeText(lastOpen >= 0 ? text.left(lastOpen) : text);
    }
    // The held tail is looked for in the read's text, which QString(QByteArray) ends at the first
    // zero byte; without one, every byte of the read is typed.
    QString text = QString(bytes);
    QByteArray typed = bytes;
    if (!m_held.isEmpty()) {
        text.prepend(std::exchange(m_held, QString()));
        typed = text.toUtf8();
    }
    const int lastOpen = heldChordStart(text);
    int count = typed.size();
    if (lastOpen >= 0) {
        m_held = text.mid(lastOpen);
        const int textEnd = typed.indexOf('\0');
        count = typed.lastIndexOf('<', textEnd < 0 ? -1 : textEnd - 1);
    }
    return count > 0 ? typeBytes(typed, count) : Typing();
}

KeyPlan::Typing KeyPlan::flush()
{
    const QString held = std::exchange(m_held, QString());
    if (m_encoding == Encoding::Utf8) {
        return typeText(held);
    }
    const QByteArray bytes = held.toLocal8Bit();
    return bytes.isEmpty() ? Typing() : typeBytes(bytes, bytes.size());
}

int KeyPlan::heldChordStart(const QString& text)
{
    const int lastOpen = text.lastIndexOf('<');
    const bool held = lastOpen >= 0 && text.lastIndexOf('>') < lastOpen && text.size() - lastOpen < kHeldChordLength;
    return held ? lastOpen : -1;
}

KeyPlan::Typing KeyPlan::typeBytes(const QByteArray& bytes, int count)
{
    QVector<uint> codes(count);
    std::transform(bytes.cbegin(), bytes.cbegin() + count, codes.begin(), [](char byte) {
        return uint(static_cast<unsigned char>(byte));
    });
    // The log line shows the whole read up to its first zero byte, held tail included.
    return { QString::fromUtf8(bytes.constData()), actions(codes) };
}

KeyPlan::Typing KeyPlan::typeText(const QString& text)
{
    return text.isEmpty() ? Typing() : Typing { text, actions(text.toUcs4()) };
}

QVector<KeyPlan::Action> KeyPlan::actions(const QVector<uint>& codes)
{
    QVector<Action> actions;
    QVector<int> keys;
    for (int i = 0, closing = 0; i < codes.size(); ++i) {
        if (codes[i] == '\r') {
            actions.append({ Action::Kind::CarriageReturn, '\r', {} });
        } else if (codes[i] == '<' && chordAt(codes, i, keys, closing)) {
            actions.append({ Action::Kind::Chord, 0, keys });
            i = closing;
        } else {
            actions.append({ Action::Kind::Character, codes[i], {} });
        }
    }
    return actions;
}

bool KeyPlan::chordAt(const QVector<uint>& codes, int at, QVector<int>& keys, int& closing)
{
    closing = int(std::find(codes.cbegin() + at, codes.cend(), uint('>')) - codes.cbegin());
    if (closing == codes.size() || closing == at + 1) {
        return false;
    }
    keys.clear();
    const QStringList names = QString::fromUcs4(codes.constData() + at + 1, closing - at - 1).split('+');
    for (const QString& name : names) {
        const auto key = keyNames.constFind(name.trimmed());
        if (key == keyNames.constEnd()) {
            return false;
        }
        keys.append(key.value());
    }
    keys.resize(std::min(int(keys.size()), kMostChordKeys));
    return true;
}
