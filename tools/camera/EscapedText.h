#pragma once

#include <QByteArray>
#include <QString>

// Backslash escapes for texts given on the command line: frames usually end in CR LF, and a
// shell argument cannot carry those bytes comfortably.
namespace EscapedText {

// Turns \r \n \t \0 \\ and \xHH into their bytes; other text is taken as UTF-8. A lone or
// unknown escape is an error described in *error.
bool decode(const QString& text, QByteArray* bytes, QString* error);

// The opposite for printing: printable ASCII stays, everything else becomes an escape.
QString encode(const QByteArray& bytes);

} // namespace EscapedText
