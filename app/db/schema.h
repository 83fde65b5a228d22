#pragma once
// The one definition of data1.dat's tables (app/schema.sql), created alike on SQLite and PostgreSQL.
#include "app/db/types.h"

#include <QString>
#include <QStringList>
#include <QVariant>
#include <vector>

namespace pel {

class Connection;

struct SchemaColumn {
    QString name;
    JetType type = JetType::Unknown;
    int size = 0;
    bool notNull = false;
    QString defaultValue; // as written in the definition ("0", "''"), empty when none
};

struct SchemaTable {
    QString name;
    std::vector<SchemaColumn> columns;
    QStringList primaryKey;
};

struct SchemaIndex {
    QString name;
    QString table;
    QStringList columns;
};

struct Schema {
    std::vector<SchemaTable> tables;
    std::vector<SchemaIndex> indexes;
    const SchemaTable* table(const QString& name) const;
};

// The parsed definition.
const Schema& schema();
// The value a column takes when an insert leaves it out; null when it has no default.
QVariant defaultKeyValue(const QString& table, const QString& column);
// The statements that create it on the connection's backend.
QStringList schemaStatements(bool postgres);
// Creates every table and index; false with the engine's error text.
bool createSchema(Connection& connection, QString* error);
// Creates a new SQLite data1.dat at path with the schema (fails when the file exists).
bool createSqliteDatabase(const QString& path, QString* error);

} // namespace pel
