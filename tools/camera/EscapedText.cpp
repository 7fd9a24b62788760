#include "EscapedText.h"

namespace EscapedText {

namespace {

int hexValue(QChar c)
{
    if (c >= '0' && c <= '9') {
        return c.unicode() - '0';
    }
    const QChar lower = c.toLower();
    if (lower >= 'a' && lower <= 'f') {
        return lower.unicode() - 'a' + 10;
    }
    return -1;
}

} // namespace

bool decode(const QString& text, QByteArray* bytes, QString* error)
{
    bytes->clear();
    for (int i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            int end = i;
            while (end < text.size() && text[end] != '\\') {
                ++end;
            }
            bytes->append(text.mid(i, end - i).toUtf8());
            i = end - 1;
            continue;
        }
        if (i + 1 >= text.size()) {
            *error = QStringLiteral("\"%1\" ends in a lone backslash (write \\\\ for one)").arg(text);
            return false;
        }
        const QChar kind = text[++i];
        if (kind == 'r') {
            bytes->append('\r');
        } else if (kind == 'n') {
            bytes->append('\n');
        } else if (kind == 't') {
            bytes->append('\t');
        } else if (kind == '0') {
            bytes->append('\0');
        } else if (kind == '\\') {
            bytes->append('\\');
        } else if (kind == 'x') {
            const int high = i + 1 < text.size() ? hexValue(text[i + 1]) : -1;
            const int low = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
            if (high < 0 || low < 0) {
                *error = QStringLiteral("\"%1\": \\x needs two hex digits").arg(text);
                return false;
            }
            bytes->append(char(high * 16 + low));
            i += 2;
        } else {
            *error = QStringLiteral("\"%1\": unknown escape \\%2").arg(text, kind);
            return false;
        }
    }
    return true;
}

QString encode(const QByteArray& bytes)
{
    QString text;
    for (const char byte : bytes) {
        const auto c = static_cast<unsigned char>(byte);
        if (c == '\\') {
            text += QStringLiteral("\\\\");
        } else if (c == '\r') {
            text += QStringLiteral("\\r");
        } else if (c == '\n') {
            text += QStringLiteral("\\n");
        } else if (c == '\t') {
            text += QStringLiteral("\\t");
        } else if (c >= 0x20 && c < 0x7F) {
            text += QChar(c);
        } else {
            text += QStringLiteral("\\x%1").arg(c, 2, 16, QChar('0'));
        }
    }
    return text;
}

} // namespace EscapedText
