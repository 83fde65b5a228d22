#pragma once
// The suite's audit trail: a row in operatlog when a screen opens, closes and finishes its main action.
#include <QString>

namespace pel {

// Writes through the global connection. Cuts operation to 80 and note to 50 Shift-JIS bytes, trimmed, in place.
// Never reports anything: a row that cannot be written (a quote in a text, a closed database) is lost silently.
void fnOpeLog(QString& operation, int kind, QString& note);
// The same row through a private connection of its own.
void fnOpeLogDb(QString& operation, int kind, QString& note);

// Convenience for callers that do not need the cut texts back.
inline void opeLog(const QString& operation, int kind, const QString& note = QString())
{
    QString o = operation, n = note;
    fnOpeLog(o, kind, n);
}

} // namespace pel
