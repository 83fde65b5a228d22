#include "app/db/schema.h"

#include "app/db/connection.h"
#include "app/schema_text.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

namespace pel {
namespace {

QStringList splitTop(const QString& body)
{
    QStringList parts;
    int depth = 0;
    QString cur;
    for (const QChar c : body) {
        if (c == QLatin1Char('('))
            ++depth;
        else if (c == QLatin1Char(')'))
            --depth;
        if (c == QLatin1Char(',') && depth == 0) {
            parts << cur.trimmed();
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!cur.trimmed().isEmpty())
        parts << cur.trimmed();
    return parts;
}

QStringList nameList(const QString& inParens)
{
    QStringList names;
    for (const QString& n : inParens.split(QLatin1Char(',')))
        names << n.trimmed();
    return names;
}

Schema parse()
{
    Schema s;
    QString text = QString::fromUtf8(kSchemaSql);
    static const QRegularExpression comment(QStringLiteral("--[^\n]*"));
    text.remove(comment);
    static const QRegularExpression createTable(QStringLiteral(R"(^\s*CREATE\s+TABLE\s+(\w+)\s*\((.*)\)\s*$)"),
                                                QRegularExpression::DotMatchesEverythingOption);
    static const QRegularExpression createIndex(
        QStringLiteral(R"(^\s*CREATE\s+INDEX\s+(\w+)\s+ON\s+(\w+)\s*\((.*)\)\s*$)"),
        QRegularExpression::DotMatchesEverythingOption);
    static const QRegularExpression column(QStringLiteral(R"(^(\w+)\s+(\w+(?:\s*\(\s*\d+\s*\))?)(.*)$)"),
                                           QRegularExpression::DotMatchesEverythingOption);
    static const QRegularExpression defaultRe(QStringLiteral(R"(DEFAULT\s+('[^']*'|[-\w.]+))"));
    for (const QString& stmt : text.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        if (stmt.trimmed().isEmpty())
            continue;
        if (auto m = createTable.match(stmt); m.hasMatch()) {
            SchemaTable t;
            t.name = m.captured(1);
            for (const QString& item : splitTop(m.captured(2))) {
                if (item.startsWith(QLatin1String("PRIMARY KEY"))) {
                    t.primaryKey = nameList(item.mid(item.indexOf(QLatin1Char('(')) + 1).chopped(1));
                    continue;
                }
                const auto c = column.match(item);
                if (!c.hasMatch())
                    qFatal("schema: cannot read column definition '%s'", qPrintable(item));
                SchemaColumn col;
                col.name = c.captured(1);
                col.type = jetTypeFromName(c.captured(2), &col.size);
                const QString rest = c.captured(3);
                col.notNull = rest.contains(QLatin1String("NOT NULL"));
                if (auto d = defaultRe.match(rest); d.hasMatch())
                    col.defaultValue = d.captured(1);
                if (rest.contains(QLatin1String("PRIMARY KEY")))
                    t.primaryKey = {col.name};
                t.columns.push_back(col);
            }
            s.tables.push_back(t);
        } else if (auto i = createIndex.match(stmt); i.hasMatch()) {
            s.indexes.push_back({i.captured(1), i.captured(2), nameList(i.captured(3))});
        } else {
            qFatal("schema: cannot read statement '%s'", qPrintable(stmt.trimmed()));
        }
    }
    return s;
}

QString pgType(const SchemaColumn& c)
{
    switch (c.type) {
    case JetType::Boolean:
        return QStringLiteral("boolean");
    case JetType::Byte:
    case JetType::Integer:
        return QStringLiteral("smallint");
    case JetType::Long:
        return QStringLiteral("integer");
    case JetType::Currency:
        return QStringLiteral("numeric(19,4)");
    case JetType::Single:
        return QStringLiteral("real");
    case JetType::Double:
        return QStringLiteral("double precision");
    case JetType::DateTime:
        return QStringLiteral("timestamp(0) without time zone");
    case JetType::Text:
        return QStringLiteral("varchar(%1)").arg(c.size);
    case JetType::Memo:
        return QStringLiteral("text");
    default:
        return QStringLiteral("bytea");
    }
}

QString quoted(const QString& n)
{
    return QLatin1Char('"') + n + QLatin1Char('"');
}

// SQLite stores whatever it is given; the suite's engine refuses a text in a number or date column and a text
// longer than its column. The engine's error texts are given for these checks by the connection.
QString sqliteCheck(const SchemaColumn& c)
{
    const QString n = quoted(c.name);
    if (isNumeric(c.type) || c.type == JetType::Boolean)
        return QStringLiteral(" CHECK (typeof(%1) IN ('integer','real','null'))").arg(n);
    if (c.type == JetType::Text)
        return QStringLiteral(" CHECK (length(%1) <= %2)").arg(n).arg(c.size);
    if (c.type == JetType::DateTime)
        return QStringLiteral(" CHECK (%1 IS NULL OR %1 GLOB '[0-9][0-9][0-9][0-9][/-][0-9]*')").arg(n);
    return QString();
}

QString quotedList(const QStringList& names)
{
    QStringList q;
    for (const QString& n : names)
        q << quoted(n);
    return q.join(QLatin1String(", "));
}

} // namespace

const SchemaTable* Schema::table(const QString& name) const
{
    for (const SchemaTable& t : tables)
        if (t.name.compare(name, Qt::CaseInsensitive) == 0)
            return &t;
    return nullptr;
}

const Schema& schema()
{
    static const Schema s = parse();
    return s;
}

QVariant defaultKeyValue(const QString& table, const QString& column)
{
    const SchemaTable* t = schema().table(table);
    if (!t)
        return QVariant();
    for (const SchemaColumn& c : t->columns) {
        if (c.name.compare(column, Qt::CaseInsensitive) != 0 || c.defaultValue.isEmpty())
            continue;
        if (c.defaultValue.startsWith(QLatin1Char('\'')))
            return c.defaultValue.mid(1, c.defaultValue.size() - 2);
        return isNumeric(c.type) ? QVariant(c.defaultValue.toLongLong()) : QVariant(c.defaultValue);
    }
    return QVariant();
}

QStringList schemaStatements(bool postgres)
{
    QStringList out;
    for (const SchemaTable& t : schema().tables) {
        QStringList defs;
        for (const SchemaColumn& c : t.columns) {
            QString d = quoted(c.name) + QLatin1Char(' ') + (postgres ? pgType(c) : jetTypeName(c.type, c.size));
            if (c.notNull)
                d += QStringLiteral(" NOT NULL");
            if (!c.defaultValue.isEmpty())
                d += QStringLiteral(" DEFAULT ") + c.defaultValue;
            if (!postgres)
                d += sqliteCheck(c);
            defs << d;
        }
        if (!t.primaryKey.isEmpty())
            defs << QStringLiteral("PRIMARY KEY (%1)").arg(quotedList(t.primaryKey));
        out << QStringLiteral("CREATE TABLE %1 (\n  %2\n)").arg(quoted(t.name), defs.join(QLatin1String(",\n  ")));
    }
    for (const SchemaIndex& i : schema().indexes)
        out << QStringLiteral("CREATE INDEX %1 ON %2 (%3)").arg(quoted(i.name), quoted(i.table), quotedList(i.columns));
    return out;
}

bool createSchema(Connection& connection, QString* error)
{
    const bool pg = connection.backend() == Connection::Backend::Postgres;
    if (!connection.begin(error))
        return false;
    for (const QString& stmt : schemaStatements(pg)) {
        if (!connection.executeRaw(stmt, {}, error)) {
            QString ignored;
            (void)connection.rollback(&ignored);
            return false;
        }
    }
    connection.forgetColumns();
    return connection.commit(error);
}

bool createSqliteDatabase(const QString& path, QString* error)
{
    if (QFileInfo::exists(path)) {
        *error = QStringLiteral("File already exists: '%1'.").arg(path);
        return false;
    }
    {
        // An empty SQLite file with WAL journalling, so that readers and the writer of the suite's several
        // connections do not block each other.
        const QString name = QStringLiteral("pel008-create");
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
            db.setDatabaseName(path);
            if (!db.open()) {
                *error = db.lastError().text();
                return false;
            }
            QSqlQuery q(db);
            q.exec(QStringLiteral("PRAGMA journal_mode = WAL"));
            q.exec(QStringLiteral("PRAGMA user_version = 1"));
            db.close();
        }
        QSqlDatabase::removeDatabase(name);
    }
    auto c = Connection::create();
    if (!c->open(QStringLiteral("Data Source=") + path + QLatin1Char(';'), error))
        return false;
    return createSchema(*c, error);
}

} // namespace pel
