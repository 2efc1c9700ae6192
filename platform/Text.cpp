#include "platform/Text.h"

#include <QStringDecoder>
#include <cstdint>
#include <cstring>

namespace {

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// The bytes of the well-formed sequence at `at`, or 0.
std::size_t sequenceLength(const unsigned char *at, std::size_t left) {
    const unsigned char lead = at[0];
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4) return 0;
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (left < length) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if (!isContinuation(at[i])) return 0;
    }
    if (lead == 0xE0 && at[1] < 0xA0) return 0;
    if (lead == 0xED && at[1] > 0x9F) return 0;
    if (lead == 0xF0 && at[1] < 0x90) return 0;
    if (lead == 0xF4 && at[1] > 0x8F) return 0;
    return length;
}

}  // namespace

bool isValidUtf8(std::string_view bytes) {
    const auto *at = reinterpret_cast<const unsigned char *>(bytes.data());
    std::size_t left = bytes.size();
    while (left > 0) {
        // Most text is ASCII: eight bytes at a time.
        std::uint64_t word = 0;
        if (left >= sizeof word) {
            std::memcpy(&word, at, sizeof word);
            if ((word & 0x8080808080808080U) == 0) {
                at += sizeof word;
                left -= sizeof word;
                continue;
            }
        }
        const std::size_t length = sequenceLength(at, left);
        if (length == 0) return false;
        at += length;
        left -= length;
    }
    return true;
}

QString toQString(std::string_view utf8) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
    return decoder.decode(QByteArrayView(utf8.data(), static_cast<qsizetype>(utf8.size())));
}

std::string toUtf8(const QString &text) {
    const QByteArray bytes = text.toUtf8();
    return {bytes.constData(), static_cast<std::size_t>(bytes.size())};
}

QString oneLine(std::string_view utf8, std::size_t limit) {
    // Leading blank lines would hide what the text is about.
    const std::size_t start = utf8.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos) {
        utf8 = utf8.substr(0, limit);
    } else if (utf8.substr(0, start).find('\n') != std::string_view::npos) {
        utf8.remove_prefix(start);
    }
    const std::size_t enough = limit * 4;  // no character takes more than four bytes
    const bool more = utf8.size() > enough;
    std::size_t cut = more ? enough : utf8.size();
    while (more && cut > 0 && isContinuation(static_cast<unsigned char>(utf8[cut]))) --cut;

    QString line = shortened(toQString(utf8.substr(0, cut)), static_cast<qsizetype>(limit));
    if (more && !line.endsWith(QChar(0x2026))) line += QChar(0x2026);
    for (QChar &c : line) {
        if (c == u'\n' || c == u'\r' || c == u'\t' || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator) {
            c = u' ';
        } else if (c.unicode() < 0x20) {
            c = QChar(0x2400 + c.unicode());  // the control pictures
        } else if (c.unicode() == 0x7F) {
            c = QChar(0x2421);
        }
    }
    return line;
}

Qt::Alignment readingSide(const QString &text) {
    return Qt::AlignAbsolute | (text.isRightToLeft() ? Qt::AlignRight : Qt::AlignLeft);
}

QString shortened(const QString &text, qsizetype limit) {
    if (text.size() <= limit) return text;
    qsizetype cut = limit;
    if (text.at(cut).isLowSurrogate()) --cut;
    return text.left(cut) + QChar(0x2026);
}

QString beginning(const QString &text, qsizetype lines, qsizetype characters) {
    qsizetype end = 0;
    for (qsizetype line = 0; line < lines; ++line) {
        const qsizetype next = text.indexOf(u'\n', end);
        if (next < 0) return shortened(text, characters);
        end = next + 1;
    }
    return shortened(shortened(text, end - 1), characters);
}
