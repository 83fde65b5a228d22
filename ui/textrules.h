#pragma once
// Text helpers shared by every screen and importer.
#include <QString>
#include <initializer_list>

namespace pel {

// Numeric value of a text: digits kept, one '.' when decimals are allowed, a leading '-' when minus is allowed,
// everything else ignored; empty gives 0.
double fnToNum(const QString& text, bool decimals = true, bool minus = true);

// The text without its leading and trailing half-width spaces, as the system trims: a full-width space, a tab or a
// line break stays.
QString fnTrim(const QString& text);

// The text with every occurrence of sub removed (searching again from the start after each removal).
QString fnDelStr(const QString& text, const QString& sub);

// Cuts the leading part of text that fits in n Shift-JIS bytes as written without splitting a character and
// returns it; text keeps the remainder (empty when the whole text fitted), so successive calls give the pieces.
QString fnCutByte(QString& text, int n);

// Two-digit year completion; an empty or blank text gives "".
QString fnYear(const QString& year, bool flag);

// The text right-aligned to width with the fill character on the left; a longer text is returned unchanged.
QString fnPadLeft(const QString& text, int width, QChar fill = QLatin1Char(' '));

// Shift-JIS byte length of a text as it is written (Cp932::byteLength).
int fnByteLen(const QString& text);

// yyyymmdd from the three texts of a date entry; 0 unless all three trimmed texts are non-empty.
long long trioToYmd(const QString& yy, const QString& mm, const QString& dd);

// The texts one after the other, in one allocation (lines built field by field in long exports).
QString joinedTexts(std::initializer_list<QString> parts);

} // namespace pel
