#include "app/db/schema.h"

#include "app/db/connection.h"
#include "app/schema_text.h"

#include <QFile>
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
    case JetType::Long:
        return QStringLiteral("bigint"); // wide enough that the range check, which names the field, refuses
    case JetType::Currency:
        return QStringLiteral("numeric(30,4)");
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

// A check named "<column> <rule>", so that the connection gives the engine's text for the rule with the field's
// name (rules: type, length, range, date).
QString check(const SchemaColumn& c, const char* rule, const QString& test)
{
    return QStringLiteral(" CONSTRAINT %1 CHECK (%2)").arg(quoted(c.name + QLatin1Char(' ') + QLatin1String(rule)), test);
}

// The range the suite's engine holds a number type to; empty for a type without one.
QString rangeTest(const SchemaColumn& c)
{
    const QString n = quoted(c.name);
    switch (c.type) {
    case JetType::Byte:
        return QStringLiteral("%1 BETWEEN 0 AND 255").arg(n);
    case JetType::Integer:
        return QStringLiteral("%1 BETWEEN -32768 AND 32767").arg(n);
    case JetType::Long:
        return QStringLiteral("%1 BETWEEN -2147483648 AND 2147483647").arg(n);
    case JetType::Currency:
        return QStringLiteral("%1 BETWEEN -922337203685477.5808 AND 922337203685477.5807").arg(n);
    default:
        return QString();
    }
}

// A date text as SQLite reads it ("yyyy-mm-dd hh:mm:ss") from any form the system writes: "/" or "-", an hour of
// one or two digits, without seconds or without a time.
QString isoDate(const QString& x)
{
    const QString t = QStringLiteral("substr(%1, 12)").arg(x);
    const QString hm = QStringLiteral("(CASE WHEN substr(%1, 2, 1) = ':' THEN '0' || %1 ELSE %1 END)").arg(t);
    const QString full =
        QStringLiteral("(CASE WHEN %1 = '' THEN '00:00:00' WHEN length(%2) = 5 THEN %2 || ':00' ELSE %2 END)").arg(t, hm);
    return QStringLiteral("(replace(substr(%1, 1, 10), '/', '-') || ' ' || %2)").arg(x, full);
}

// The one form dates are stored in on SQLite, which sorts and compares as text: "yyyy/mm/dd hh:mm:ss".
QString storedDate(const QString& x)
{
    return QStringLiteral("replace(%1, '-', '/')").arg(isoDate(x));
}

// SQLite stores whatever it is given; the suite's engine refuses a text in a number or date column, a text longer
// than its column, a number beyond its type's range and a date that does not exist.
QString sqliteCheck(const SchemaColumn& c)
{
    const QString n = quoted(c.name);
    if (isNumeric(c.type) || c.type == JetType::Boolean) {
        QString out = check(c, "type", QStringLiteral("typeof(%1) IN ('integer','real','null')").arg(n));
        if (const QString range = rangeTest(c); !range.isEmpty())
            out += check(c, "range", range);
        return out;
    }
    if (c.type == JetType::Text)
        return check(c, "length", QStringLiteral("length(%1) <= %2").arg(n).arg(c.size));
    if (c.type == JetType::DateTime) {
        const QString iso = isoDate(n);
        return check(c, "date",
                     QStringLiteral("%1 IS NULL OR (typeof(%1) = 'text' AND substr(%1, 11, 1) IN ('', ' ') AND "
                                    "datetime(julianday(%2)) IS %2)")
                         .arg(n, iso));
    }
    return QString();
}

// PostgreSQL's own types refuse texts and impossible dates; the ranges are the suite's engine's.
QString postgresCheck(const SchemaColumn& c)
{
    const QString range = rangeTest(c);
    return range.isEmpty() ? QString() : check(c, "range", range);
}

// SQLite: a date written in another form is stored in the one form.
QStringList dateTriggers(const SchemaTable& t)
{
    QStringList out;
    for (const SchemaColumn& c : t.columns) {
        if (c.type != JetType::DateTime)
            continue;
        const QString value = QStringLiteral("new.") + quoted(c.name);
        const QString body = QStringLiteral("WHEN %1 IS NOT %2 BEGIN UPDATE %3 SET %4 = %2 WHERE rowid = new.rowid; END")
                                 .arg(value, storedDate(value), quoted(t.name), quoted(c.name));
        out << QStringLiteral("CREATE TRIGGER %1 AFTER INSERT ON %2 %3")
                   .arg(quoted(t.name + QLatin1Char(' ') + c.name + QLatin1String(" added")), quoted(t.name), body);
        out << QStringLiteral("CREATE TRIGGER %1 AFTER UPDATE OF %2 ON %3 %4")
                   .arg(quoted(t.name + QLatin1Char(' ') + c.name + QLatin1String(" changed")), quoted(c.name),
                        quoted(t.name), body);
    }
    return out;
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
            d += postgres ? postgresCheck(c) : sqliteCheck(c);
            defs << d;
        }
        if (!t.primaryKey.isEmpty())
            defs << QStringLiteral("PRIMARY KEY (%1)").arg(quotedList(t.primaryKey));
        out << QStringLiteral("CREATE TABLE %1 (\n  %2\n)").arg(quoted(t.name), defs.join(QLatin1String(",\n  ")));
        if (!postgres)
            out << dateTriggers(t);
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

namespace {

// The empty file with WAL journalling, so that readers and the writer of the suite's several connections do not
// block each other. A folder without shared memory keeps the rollback journal, which works as well.
bool createEmptySqlite(const QString& path, QString* error)
{
    const QString name = QStringLiteral("pel008-create");
    bool ok = false;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        if (db.open()) {
            QSqlQuery q(db);
            ok = q.exec(QStringLiteral("PRAGMA journal_mode = WAL")) &&
                 q.exec(QStringLiteral("PRAGMA user_version = 1"));
            if (!ok)
                *error = q.lastError().text();
        } else {
            *error = db.lastError().text();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return ok;
}

} // namespace

bool createSqliteDatabase(const QString& path, QString* error)
{
    if (QFileInfo::exists(path)) {
        *error = QStringLiteral("File already exists: '%1'.").arg(path);
        return false;
    }
    bool ok = createEmptySqlite(path, error);
    if (ok) {
        auto c = Connection::create();
        ok = c->open(QStringLiteral("Data Source=") + path + QLatin1Char(';'), error) && createSchema(*c, error);
    }
    // A half-made file would be taken for a database by the next start and refused by the next createdb.
    if (!ok)
        for (const char* suffix : {"", "-wal", "-shm", "-journal"})
            QFile::remove(path + QLatin1String(suffix));
    return ok;
}

} // namespace pel
