#pragma once

#include <QString>
#include <Qt>
#include <cstddef>
#include <string>
#include <string_view>

// Between UTF-8 bytes, the form in which texts are kept, and QString, the form in which they are shown.

// Whether the bytes are UTF-8 as the standard has it: no overlong forms, no surrogates, nothing above
// U+10FFFF.
bool isValidUtf8(std::string_view bytes);

// The text as it stands, a leading byte order mark and NUL included (QString::fromUtf8 drops the mark).
// Bytes that are not UTF-8 become replacement characters.
QString toQString(std::string_view utf8);

// The reverse; a lone surrogate becomes a replacement character.
std::string toUtf8(const QString &text);

// One line that stands for a text of any size: at most `limit` characters, line breaks and tabs as blanks,
// other control characters as visible signs, an ellipsis where something was left out.
QString oneLine(std::string_view utf8, std::size_t limit = 200);

// The side at which a text begins in its own script, whatever that of the desktop is.
Qt::Alignment readingSide(const QString &text);

// At most `limit` characters of `text`, with an ellipsis if something was left out. No character is cut in
// two.
QString shortened(const QString &text, qsizetype limit);

// At most so many lines and characters of `text`, with an ellipsis if something was left out.
QString beginning(const QString &text, qsizetype lines, qsizetype characters);
