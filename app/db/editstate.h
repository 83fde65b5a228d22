#pragma once
// The edit side of a recordset opened for editing (private to the database layer).
#include "app/db/recordset.h"

#include <QString>
#include <QStringList>
#include <QVariant>
#include <memory>
#include <vector>

namespace pel {

struct Recordset::EditState {
    std::shared_ptr<Connection> conn;
    QString table;
    QStringList key;                        // the table's primary key columns; empty: rows cannot be found again
    std::vector<std::vector<QVariant>> keys; // each row's key values as read (or as written)
    bool implicitTx = false;                // pending outside BeginTns: holds a share of the connection's lock
    bool adding = false;
    std::vector<QVariant> buffer; // the row being changed
    std::vector<bool> dirty;
    bool buffered = false;
    QString pendingError; // a value that did not convert: Update fails with it
    QString lockConflict; // another connection held the row when it was opened: Update fails with this
};

} // namespace pel
