#pragma once
// The one codec for every file the system calls Shift-JIS: CP932 (Windows-31J), strict both ways.
#include <QByteArray>
#include <QString>
#include <optional>

namespace pel {

struct Cp932Error {
    qsizetype position = -1; // decoding: byte offset of the bad sequence; encoding: index of the character
    QString character;       // encoding: the character that has no CP932 form (one code point)
    QString message;         // a sentence for the user
};

class Cp932 {
public:
    // Decodes strictly: an invalid or unmapped byte sequence and a cut lead byte at the end are errors.
    static std::optional<QString> decode(const QByteArray& bytes, Cp932Error* error = nullptr);
    // Encodes strictly: a character without a CP932 form is an error naming that character and its position;
    // nothing is ever replaced by a substitute.
    static std::optional<QByteArray> encode(QStringView text, Cp932Error* error = nullptr);
    // The text as the system converts it: a character without a CP932 form becomes one '?' per UTF-16 unit.
    // Writers that use it report every such character themselves.
    static QByteArray encodeLossy(QStringView text);
    // Number of CP932 bytes of the text (an unmappable character counts two, like a double-byte one).
    static qsizetype byteLength(QStringView text);
    // True for a byte that starts a two-byte character, as the system cuts texts: 0x80-0x9F and 0xE0-0xFF.
    static bool isLeadByte(unsigned char b) { return (b >= 0x80 && b <= 0x9F) || b >= 0xE0; }
};

} // namespace pel
