#pragma once
// mirabo.ini: a private-profile settings file in CP932 with CR LF, shared with the rest of the suite.
#include <QString>

#include <optional>

namespace pel {

// Reads key of section into value (default when absent), cut to size - 1 characters; returns the number of
// characters copied. Section and key names compare case-insensitively.
long fnGetIni(const QString& section, const QString& key, const QString& defaultValue, QString& value, int size,
              const QString& file);
// Writes key=value into section, creating the file or section as needed and keeping every other line as it is.
// Returns non-zero on success; 0 when the file cannot be written or the value has no Shift-JIS form.
long fnPutIni(const QString& section, const QString& key, const QString& value, const QString& file);
// Integer read with the private-profile rules (leading sign and digits; anything else gives what was read so far).
long fnGetIniInt(const QString& section, const QString& key, long defaultValue, const QString& file);
// "dbmode" of section "mirabo" as a byte; a value outside 0..255 raises an overflow run-time error.
quint8 fnGetDbMode();

// Our own keys, read only by this program.
// The PostgreSQL connection (libpq key=value form) used instead of data1.dat when present.
QString iniDbServer();
// Milliseconds of the payment-exists wait (default 0); nullopt when the value is not a whole number of
// milliseconds, with the value as written in *text.
std::optional<int> iniCheckWait(QString* text = nullptr);

} // namespace pel
