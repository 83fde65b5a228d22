#pragma once
// Column types as a Jet database holds them, and the suite's standard conversion of values to text.
#include <QDateTime>
#include <QString>
#include <QVariant>

namespace pel {

enum class JetType { Unknown, Boolean, Byte, Integer, Long, Currency, Single, Double, DateTime, Text, Memo, Binary,
                     LongBinary, Guid, Decimal };

// Type from a declared type name (LONG, SHORT, TEXT(40), CURRENCY, ...) or a PostgreSQL data type name.
JetType jetTypeFromName(const QString& declared, int* size = nullptr);
// The name our schema and the Jet module declare for a type.
QString jetTypeName(JetType type, int size = 0);
// ADO type codes of the fields (3 Long, 2 Integer, 4 Single, 5 Double, 17 Byte, 6 Currency, 7 Date, ...).
int adoTypeCode(JetType type);
bool isNumeric(JetType type);

// The standard conversion to text: whole numbers without ".0", never an exponent, dates "yyyy/mm/dd hh:nn:ss"
// ("yyyy/mm/dd" at midnight), null "".
QString valueToText(const QVariant& value, JetType type);
// A date and time as the system's standard conversion writes it: "2026/11/23 9:05:07", midnight "2026/11/23".
QString fnDateText(const QDateTime& dt);
// A number as the standard conversion writes it (up to 15 significant digits, no exponent).
QString numberToText(double v, int significant = 15);

// Converts text (or any value) to the stored form of a column of the type; false with the engine's error text when
// it does not convert. Dates are stored as "yyyy/mm/dd hh:nn:ss".
bool convertForColumn(const QVariant& value, JetType type, int size, const QString& column, QVariant* out,
                      QString* error);

} // namespace pel
