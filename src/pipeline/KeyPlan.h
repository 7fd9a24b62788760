#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVector>
#include <memory>

class QTextDecoder;

// Turns received text into the keys that type it: characters, chords such as
// "<VK_CTRL+VK_TAB>" and taps of the CR key. A '<' near the end of a read that may still become a
// chord is held back for the next read. Pure: a KeyPlayer sends the keys.
class KeyPlan
{
public:
    enum class Encoding
    {
        // Each byte is a character of its own; the log shows a read up to its first zero byte.
        Latin1,
        // UTF-8, decoded across reads.
        Utf8,
    };

    struct Action
    {
        enum class Kind
        {
            Character,
            Chord,
            CarriageReturn,
        };
        Kind kind;
        unsigned int code = 0;
        // Chord only: virtual keys, pressed in this order and then released in the same order.
        QVector<int> keys;
    };

    // One stretch of typing and the text the log shows for it.
    struct Typing
    {
        QString logged;
        QVector<Action> actions;
    };

    explicit KeyPlan(Encoding encoding);
    ~KeyPlan();

    Typing feed(const QByteArray& bytes);
    // The line went quiet: the held tail is typed as it is.
    Typing flush();
    const QString& held() const { return m_held; }

    // An open chord shorter than this at the end of a read waits for the rest of it.
    static constexpr int kHeldChordLength = 32;
    static constexpr int kMostChordKeys = 5;
    // The key names a chord may use, with their virtual-key values.
    static const QMap<QString, int> keyNames;

private:
    // Where a '<' begins a tail that may still become a chord; or -1.
    static int heldChordStart(const QString& text);
    static Typing typeBytes(const QByteArray& bytes, int count);
    static Typing typeText(const QString& text);
    static QVector<Action> actions(const QVector<uint>& codes);
    // The chord whose '<' is at codes[at]: its keys and the index of its '>'; false for none.
    static bool chordAt(const QVector<uint>& codes, int at, QVector<int>& keys, int& closing);

    const Encoding m_encoding;
    std::unique_ptr<QTextDecoder> m_decoder;
    QString m_held;
};
