#pragma once
// What one backend cannot take of the system's statements, and how the system names result columns.
#include "app/db/recordset.h"

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

namespace pel {

struct Token {
    enum Kind { Word, Quoted, Bracketed, String, Number, Param, Symbol } kind;
    QString text; // for Quoted/Bracketed: the name without its quotes
    qsizetype pos = 0;
    bool is(const char* keyword) const { return kind == Word && text.compare(QLatin1String(keyword), Qt::CaseInsensitive) == 0; }
    bool isSym(char c) const { return kind == Symbol && text.size() == 1 && text[0] == QLatin1Char(c); }
    bool isName() const { return kind == Word || kind == Quoted || kind == Bracketed; }
};
std::vector<Token> tokenize(const QString& sql);
// True for a statement that returns rows (a select, also one in parentheses).
bool returnsRows(const QString& sql);

struct ColumnInfo {
    QString name;
    JetType type = JetType::Unknown;
    int size = 0;
};
using ColumnLookup = std::function<std::vector<ColumnInfo>(const QString& table)>;

// The first table a single-table statement reads ("select * from offset where ..."), or "" when it reads several.
QString singleTable(const std::vector<Token>& tokens);

// Field descriptions of a select as the system reads them: "alias.column" for a column that occurs under more
// than one table of the result, the bare name otherwise, "Expr1000", "Expr1001", ... for unnamed expressions.
// Empty when the statement is beyond this small parser; the caller then keeps the driver's names.
std::vector<FieldInfo> resultFields(const std::vector<Token>& tokens, const ColumnLookup& columns);

class Dialect {
public:
    virtual ~Dialect() = default;
    // The statement (with '?' placeholders) as this backend takes it.
    virtual QString adapt(const QString& sql) const = 0;
    // False when adapt gives every statement back as it is.
    virtual bool rewrites() const { return true; }
    // A select opened for editing: the key columns first, named "__k0", "__k1", ..., and, with lock, the row lock.
    virtual QString forEdit(const QString& sql, const QStringList& key, bool lock = true) const = 0;
    // True for an error that says another connection holds the row or the database locked.
    virtual bool isLockConflict(const QString& error) const = 0;
    // Quoting of an identifier in statements the layer writes itself; an embedded '"' is doubled.
    virtual QString quote(const QString& name) const = 0;
};

// The select list that puts the key columns first in an edit's result.
QString keyColumnsFirst(const QString& sql, const QStringList& key, const Dialect& dialect);

std::unique_ptr<Dialect> makeSqliteDialect();
std::unique_ptr<Dialect> makePostgresDialect();

} // namespace pel
