#include "app/cp932.h"

#include <unicode/ucnv.h>

#include <memory>

namespace pel {
namespace {

struct ConverterDeleter {
    void operator()(UConverter* c) const { ucnv_close(c); }
};
using Converter = std::unique_ptr<UConverter, ConverterDeleter>;

Converter open(bool bestFit)
{
    UErrorCode e = U_ZERO_ERROR;
    Converter c(ucnv_open("windows-31j", &e));
    if (U_FAILURE(e) || !c)
        qFatal("CP932 converter unavailable: %s", u_errorName(e));
    e = U_ZERO_ERROR;
    ucnv_setToUCallBack(c.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &e);
    ucnv_setFromUCallBack(c.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &e);
    // ICU's one-way fallbacks of windows-31j are the mappings Windows' own conversion uses for these characters
    ucnv_setFallback(c.get(), bestFit);
    return c;
}

// One converter per thread and direction; ICU converters keep state and are not shareable.
UConverter* decoder()
{
    thread_local Converter c = open(false);
    ucnv_reset(c.get());
    return c.get();
}

UConverter* encoder()
{
    thread_local Converter c = open(true);
    ucnv_reset(c.get());
    return c.get();
}

// Windows' best fit for code page 932 beyond ICU's fallbacks: the Latin-1 signs as their full-width forms.
char16_t bestFit(char16_t c)
{
    switch (c) {
    case u'\u00A2': return u'\uFFE0'; // ¢ -> 0x8191
    case u'\u00A3': return u'\uFFE1'; // £ -> 0x8192
    case u'\u00AC': return u'\uFFE2'; // ¬ -> 0x81CA
    default: return c;
    }
}

QString hexBytes(const QByteArray& b, qsizetype at, qsizetype n)
{
    QString s;
    for (qsizetype i = at; i < at + n && i < b.size(); ++i)
        s += QStringLiteral("%1 ").arg(static_cast<unsigned char>(b[i]), 2, 16, QLatin1Char('0')).toUpper();
    return s.trimmed();
}

} // namespace

std::optional<QString> Cp932::decode(const QByteArray& bytes, Cp932Error* error)
{
    UConverter* c = decoder();
    QString out(bytes.size(), Qt::Uninitialized);
    auto* target = reinterpret_cast<UChar*>(out.data());
    UChar* const targetStart = target;
    const char* source = bytes.constData();
    const char* const sourceEnd = source + bytes.size();
    UErrorCode e = U_ZERO_ERROR;
    ucnv_toUnicode(c, &target, targetStart + out.size(), &source, sourceEnd, nullptr, true, &e);
    if (U_FAILURE(e)) {
        if (error) {
            char bad[8];
            int8_t badLen = sizeof bad;
            UErrorCode e2 = U_ZERO_ERROR;
            ucnv_getInvalidChars(c, bad, &badLen, &e2);
            const qsizetype pos = (source - bytes.constData()) - badLen;
            error->position = pos;
            error->character.clear();
            error->message = e == U_TRUNCATED_CHAR_FOUND
                                 ? QStringLiteral("Shift-JIS の文字が途中で切れています (%1 バイト目)").arg(pos + 1)
                                 : QStringLiteral("Shift-JIS として読めないバイトがあります (%1 バイト目: %2)")
                                       .arg(pos + 1)
                                       .arg(hexBytes(bytes, pos, badLen));
        }
        return std::nullopt;
    }
    out.truncate(target - targetStart);
    return out;
}

std::optional<QByteArray> Cp932::encode(QStringView text, Cp932Error* error)
{
    QString mapped;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t to = bestFit(text[i].unicode());
        if (to == text[i].unicode()) continue;
        if (mapped.isNull()) mapped = text.toString();
        mapped[i] = QChar(to);
    }
    if (!mapped.isNull()) text = mapped;
    UConverter* c = encoder();
    QByteArray out(text.size() * 2, Qt::Uninitialized);
    char* target = out.data();
    char* const targetStart = target;
    const auto* source = reinterpret_cast<const UChar*>(text.data());
    const UChar* const sourceStart = source;
    UErrorCode e = U_ZERO_ERROR;
    ucnv_fromUnicode(c, &target, targetStart + out.size(), &source, sourceStart + text.size(), nullptr, true, &e);
    if (U_FAILURE(e)) {
        if (error) {
            UChar bad[4];
            int8_t badLen = 4;
            UErrorCode e2 = U_ZERO_ERROR;
            ucnv_getInvalidUChars(c, bad, &badLen, &e2);
            const qsizetype pos = (source - sourceStart) - badLen;
            error->position = pos;
            error->character = QString(reinterpret_cast<const QChar*>(bad), badLen);
            error->message = QStringLiteral("Shift-JIS で書けない文字があります: 「%1」 (%2 文字目)")
                                 .arg(error->character)
                                 .arg(pos + 1);
        }
        return std::nullopt;
    }
    out.truncate(target - targetStart);
    return out;
}

QByteArray Cp932::encodeLossy(QStringView text)
{
    QByteArray out;
    out.reserve(text.size() * 2);
    qsizetype i = 0;
    while (i < text.size()) {
        const qsizetype n = (text[i].isHighSurrogate() && i + 1 < text.size()) ? 2 : 1;
        if (auto b = encode(text.mid(i, n)))
            out += *b;
        else
            out += QByteArray(n, '?'); // one per UTF-16 unit, as the system converts
        i += n;
    }
    return out;
}

qsizetype Cp932::byteLength(QStringView text)
{
    if (auto b = encode(text))
        return b->size();
    return encodeLossy(text).size();
}

} // namespace pel
