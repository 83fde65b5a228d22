#pragma once
// The one codec for every file the system calls Shift-JIS: CP932 (Windows-31J). Reading is strict; writing maps a
// character as Windows does for code page 932 (its best fit), so "−" and "〜" typed elsewhere are written, not lost.
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
    // Encodes with Windows' best fit (U+2212 "−" as "－", U+301C "〜" as "～", "¥" as 0x5C, "¢" as "￠", ...); a
    // character that still has no form is an error naming that character and its position; nothing is replaced
    // silently.
    static std::optional<QByteArray> encode(QStringView text, Cp932Error* error = nullptr);
    // The text as the system converts it: a character without a CP932 form becomes one '?' per UTF-16 unit.
    // Writers that use it report every such character themselves.
    static QByteArray encodeLossy(QStringView text);
    // Number of bytes the text is written as: encodeLossy's length, a character without a form counting its '?'s.
    static qsizetype byteLength(QStringView text);
    // True for a byte that starts a two-byte character, as the system cuts texts: 0x80-0x9F and 0xE0-0xFF.
    static bool isLeadByte(unsigned char b) { return (b >= 0x80 && b <= 0x9F) || b >= 0xE0; }
};

} // namespace pel
