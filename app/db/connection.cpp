#include "app/db/connection.h"
#include "app/db/editstate.h"
#include "app/db/schema.h"

#include "jet/sqlite_attach.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QStorageInfo>

#include <sqlite3.h>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

#include <atomic>
#include <cstdlib>
#include <set>
#include <utility>

namespace pel {
namespace {

std::atomic<int> gConnectionSerial{0};

// Every open connection, so that all are closed while Qt's SQL registry still exists: globals such as gclsDb are
// destroyed after it. Never freed, as it must outlive those globals.
std::set<Connection*>& openConnections()
{
    static auto* open = new std::set<Connection*>();
    return *open;
}
bool gRegistryGone = false;

void closeAllConnections()
{
    const std::set<Connection*> open = openConnections();
    for (Connection* c : open)
        c->close();
    gRegistryGone = true;
}

// Registered after Qt's registry came into being (by the first addDatabase), so it runs before that is destroyed,
// and again after the Jet engine's registries came into being (by the first attach): exit handlers run in reverse
// order. Also when the application object goes (for plugins unloaded with it), once there is one.
void closeAtExit(bool engineAttached = false)
{
    static bool registered = false, afterEngine = false, postRoutine = false;
    if (!registered || (engineAttached && !afterEngine)) {
        if (std::atexit(closeAllConnections) != 0)
            qWarning("pel008: connections cannot be closed at exit");
        registered = true;
        afterEngine = afterEngine || engineAttached;
    }
    if (!postRoutine && QCoreApplication::instance()) {
        qAddPostRoutine(closeAllConnections);
        postRoutine = true;
    }
}

// How long a statement waits for a row or file another connection holds locked before it fails.
int lockWaitMs()
{
    bool ok = false;
    const int ms = qEnvironmentVariableIntValue("PEL008_LOCK_WAIT_MS", &ok);
    return ok && ms >= 0 ? ms : 250;
}

const QString mismatch = QStringLiteral("Data type mismatch in criteria expression.");
const QString tooLong = QStringLiteral("The field is too small to accept the amount of data you attempted to add. "
                                       "Try inserting or pasting less data.");

// A value of the wrong kind or size is refused in the engine's words on every backend.
QString engineText(const QString& t)
{
    // the value checks of our own tables, named "<column> <rule>"
    static const QRegularExpression named(
        QStringLiteral(R"((?:CHECK constraint failed: |violates check constraint ")(\w+) (type|length|range|date)\b)"));
    if (const auto m = named.match(t); m.hasMatch()) {
        if (m.captured(2) == QLatin1String("range"))
            return QStringLiteral("The value for '%1' is out of the range of its field.").arg(m.captured(1));
        return m.captured(2) == QLatin1String("length") ? tooLong : mismatch;
    }
    if (t.contains(QLatin1String("CHECK constraint failed"))) {
        if (t.contains(QLatin1String("typeof(")) || t.contains(QLatin1String("GLOB")))
            return mismatch;
        if (t.contains(QLatin1String("length(")))
            return tooLong;
    }
    if (t.contains(QLatin1String("invalid input syntax for type")) ||
        t.contains(QLatin1String("date/time field value out of range")))
        return mismatch;
    if (t.contains(QLatin1String("value too long for type")))
        return tooLong;
    return t;
}

QString errorText(const QSqlError& e)
{
    QString t = e.databaseText().trimmed();
    if (t.isEmpty())
        t = e.driverText().trimmed();
    return t.isEmpty() ? QStringLiteral("Unknown database error.") : engineText(t);
}

// True for well-formed UTF-8 (no overlong forms, no surrogates, nothing above U+10FFFF) without U+FFFE and
// U+FFFF: text that Qt and SQLite turn into the same UTF-16.
bool plainUtf8(const unsigned char* p, size_t n)
{
    size_t i = 0;
    while (i < n) {
        if (p[i] < 0x80) {
            ++i;
            continue;
        }
        const unsigned char b = p[i];
        const auto tail = [&](size_t k, unsigned char lo = 0x80, unsigned char hi = 0xBF) {
            return i + k < n && p[i + k] >= lo && p[i + k] <= hi;
        };
        if (b >= 0xC2 && b <= 0xDF) {
            if (!tail(1))
                return false;
            i += 2;
        } else if (b >= 0xE0 && b <= 0xEF) {
            const bool second = b == 0xE0 ? tail(1, 0xA0) : b == 0xED ? tail(1, 0x80, 0x9F) : tail(1);
            if (!second || !tail(2))
                return false;
            if (b == 0xEF && p[i + 1] == 0xBF && p[i + 2] >= 0xBE)
                return false;
            i += 3;
        } else if (b >= 0xF0 && b <= 0xF4) {
            const bool second = b == 0xF0 ? tail(1, 0x90) : b == 0xF4 ? tail(1, 0x80, 0x8F) : tail(1);
            if (!second || !tail(2) || !tail(3))
                return false;
            i += 4;
        } else {
            return false;
        }
    }
    return true;
}

// A column as the SQLite driver reads it, into rows. Text is kept as UTF-8 when Qt reads it as SQLite does;
// anything else is converted by SQLite itself.
void addColumn(ResultRows& rows, sqlite3_stmt* st, int i)
{
    switch (sqlite3_column_type(st, i)) {
    case SQLITE_BLOB:
        rows.addVariant(QByteArray(static_cast<const char*>(sqlite3_column_blob(st, i)), sqlite3_column_bytes(st, i)));
        return;
    case SQLITE_INTEGER:
        rows.addInt(sqlite3_column_int64(st, i));
        return;
    case SQLITE_FLOAT:
        rows.addDouble(sqlite3_column_double(st, i));
        return;
    case SQLITE_NULL:
        rows.addNull();
        return;
    default:
        break;
    }
    const auto* p = sqlite3_column_text(st, i);
    const int n = sqlite3_column_bytes(st, i);
    if (plainUtf8(p, static_cast<size_t>(n))) {
        rows.addUtf8(reinterpret_cast<const char*>(p), n);
        return;
    }
    rows.addVariant(QString(reinterpret_cast<const QChar*>(sqlite3_column_text16(st, i)),
                            sqlite3_column_bytes16(st, i) / static_cast<int>(sizeof(QChar))));
}

// A key column of an edit's result, as the driver gives it.
QVariant keyValue(sqlite3_stmt* st, int i)
{
    switch (sqlite3_column_type(st, i)) {
    case SQLITE_INTEGER:
        return QVariant(static_cast<qlonglong>(sqlite3_column_int64(st, i)));
    case SQLITE_NULL:
        return QVariant(QMetaType::fromType<QString>());
    case SQLITE_FLOAT:
        return QVariant(sqlite3_column_double(st, i));
    default:
        return QString(reinterpret_cast<const QChar*>(sqlite3_column_text16(st, i)),
                       sqlite3_column_bytes16(st, i) / static_cast<int>(sizeof(QChar)));
    }
}

// Binds as the driver binds; false for a kind of value only the driver's own path binds.
bool bindValue(sqlite3_stmt* st, int at, const QVariant& v)
{
    const bool null = v.isNull() ||
                      (v.typeId() == QMetaType::QString && static_cast<const QString*>(v.constData())->isNull()) ||
                      (v.typeId() == QMetaType::QByteArray && static_cast<const QByteArray*>(v.constData())->isNull());
    if (null)
        return sqlite3_bind_null(st, at) == SQLITE_OK;
    switch (v.typeId()) {
    case QMetaType::QByteArray: {
        const auto* ba = static_cast<const QByteArray*>(v.constData());
        return sqlite3_bind_blob(st, at, ba->constData(), static_cast<int>(ba->size()), SQLITE_TRANSIENT) == SQLITE_OK;
    }
    case QMetaType::Int:
    case QMetaType::Bool:
        return sqlite3_bind_int(st, at, v.toInt()) == SQLITE_OK;
    case QMetaType::Double:
        return sqlite3_bind_double(st, at, v.toDouble()) == SQLITE_OK;
    case QMetaType::UInt:
    case QMetaType::LongLong:
        return sqlite3_bind_int64(st, at, v.toLongLong()) == SQLITE_OK;
    case QMetaType::QString: {
        const auto* str = static_cast<const QString*>(v.constData());
        return sqlite3_bind_text16(st, at, str->utf16(), static_cast<int>(str->size() * 2), SQLITE_TRANSIENT) ==
               SQLITE_OK;
    }
    default:
        return false;
    }
}

// key=value pairs of a connection string, keys lower-cased.
QHash<QString, QString> parseConnectString(const QString& s)
{
    QHash<QString, QString> out;
    static const QString keys[] = {QStringLiteral("provider"), QStringLiteral("data source"),
                                   QStringLiteral("jet oledb:database password")};
    // "Data Source" may hold ';' inside a PostgreSQL string: split only before a known key.
    qsizetype i = 0;
    while (i < s.size()) {
        qsizetype next = s.size();
        for (const QString& k : keys) {
            const qsizetype p = s.indexOf(QLatin1Char(';') + k + QLatin1Char('='), i, Qt::CaseInsensitive);
            if (p >= 0 && p < next)
                next = p;
        }
        const QString part = s.mid(i, next - i);
        const qsizetype eq = part.indexOf(QLatin1Char('='));
        if (eq > 0)
            out.insert(part.left(eq).trimmed().toLower(), part.mid(eq + 1));
        i = next + 1;
    }
    for (auto it = out.begin(); it != out.end(); ++it)
        if (it.value().endsWith(QLatin1Char(';')))
            it.value().chop(1);
    return out;
}

} // namespace

namespace {

bool realNetworkProbe(const QString& folder)
{
#ifdef Q_OS_WIN
    const QString native = QDir::toNativeSeparators(QFileInfo(folder).absoluteFilePath());
    if (native.startsWith(QLatin1String("\\\\")))
        return true;
    const std::wstring root = native.left(3).toStdWString();
    return GetDriveTypeW(root.c_str()) == DRIVE_REMOTE;
#else
    static const QSet<QByteArray> network = {"nfs",   "nfs4",       "cifs",  "smb",         "smb2",          "smb3",
                                             "smbfs", "9p",         "afs",   "ceph",        "glusterfs",     "lustre",
                                             "ncpfs", "fuse.sshfs", "davfs", "fuse.davfs2", "fuse.glusterfs"};
    return network.contains(QStorageInfo(folder).fileSystemType());
#endif
}

bool (*gNetworkProbe)(const QString&) = realNetworkProbe;

} // namespace

bool isNetworkFolder(const QString& folder)
{
    return gNetworkProbe(folder);
}

void setNetworkFolderProbe(bool (*probe)(const QString& folder))
{
    gNetworkProbe = probe ? probe : realNetworkProbe;
}

QString fileNotFound(const QString& path)
{
    return QStringLiteral("Could not find file '%1'.").arg(path);
}

bool isFileNotFound(const QString& error)
{
    return error.startsWith(QLatin1String("Could not find file '"));
}

QString rowChangedByAnotherUser()
{
    return QStringLiteral("The row was deleted by another user or process.");
}

QString unrecognisedFormat(const QString& path)
{
    return QStringLiteral("Unrecognized database format '%1'.").arg(path);
}

bool isValueRefusal(const QString& error)
{
    return error == mismatch || error == tooLong || error.startsWith(QLatin1String("Syntax error (missing operator)"));
}

Connection::Connection() : name_(QStringLiteral("pel008-%1").arg(++gConnectionSerial)), dialect_(makeSqliteDialect()) {}

Connection::~Connection()
{
    close();
}

bool Connection::open(const QString& connectString, QString* error)
{
    close();
    const auto opts = parseConnectString(connectString);
    const QString source = opts.value(QStringLiteral("data source"));
    if (connectString.isEmpty() || source.isEmpty()) {
        *error = QStringLiteral("No database: the connection string is empty (dbmode must be 0 or 1).");
        return false;
    }
    if (opts.value(QStringLiteral("provider")).compare(QLatin1String("PostgreSQL"), Qt::CaseInsensitive) == 0) {
        db_ = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), name_);
        openConnections().insert(this);
        closeAtExit();
        db_.setConnectOptions(source);
        if (!db_.open()) {
            *error = errorText(db_.lastError());
            close();
            return false;
        }
        backend_ = Backend::Postgres;
        dialect_ = makePostgresDialect();
        QSqlQuery q(db_);
        q.exec(QStringLiteral("SET lock_timeout = %1").arg(std::max(1, lockWaitMs())));
        q.exec(QStringLiteral("SET client_min_messages = warning"));
        return true;
    }
    const QString password = opts.value(QStringLiteral("jet oledb:database password"));
    QFile f(source);
    if (!QFileInfo(source).isFile() || !f.open(QIODevice::ReadOnly)) {
        *error = fileNotFound(source);
        return false;
    }
    const QByteArray head = f.read(64);
    f.close();
    if (head.startsWith(QByteArrayLiteral("SQLite format 3\0")))
        return openSqliteFile(source, password, error);
    if (jet::looksLikeJet(reinterpret_cast<const unsigned char*>(head.constData()), static_cast<size_t>(head.size()))) {
        db_ = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name_);
        openConnections().insert(this);
        closeAtExit();
        db_.setDatabaseName(QStringLiteral(":memory:"));
        if (!db_.open()) {
            *error = errorText(db_.lastError());
            close();
            return false;
        }
        auto* handle = *static_cast<sqlite3* const*>(db_.driver()->handle().data());
        std::string why;
        if (jet::attach(handle, source.toStdString(), password.toStdString(), &why) != 0) {
            *error = QString::fromStdString(why);
            close();
            return false;
        }
        closeAtExit(true);
        backend_ = Backend::Jet;
        dialect_ = makeSqliteDialect();
        return true;
    }
    *error = unrecognisedFormat(source);
    return false;
}

bool Connection::openSqliteFile(const QString& path, const QString&, QString* error)
{
    db_ = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name_);
    openConnections().insert(this);
    closeAtExit();
    db_.setDatabaseName(path);
    db_.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(lockWaitMs()));
    if (!db_.open()) {
        *error = errorText(db_.lastError());
        close();
        return false;
    }
    QSqlQuery q(db_);
    // Page one only (lock, header): the schema is parsed at the connection's first statement, which a connection
    // opened at start-up may not run until the screen is up.
    if (!q.exec(QStringLiteral("PRAGMA schema_version"))) {
        *error = errorText(q.lastError());
        q = QSqlQuery();
        close();
        return false;
    }
    // These pragmas parse the schema too: they wait for the first statement, which parses it anyway.
    if (isNetworkFolder(QFileInfo(path).absolutePath()))
        sessionPragmas_ << QStringLiteral("PRAGMA journal_mode = DELETE");
    sessionPragmas_ << QStringLiteral("PRAGMA synchronous = NORMAL");
    backend_ = Backend::Sqlite;
    dialect_ = makeSqliteDialect();
    return true;
}

QSqlQuery Connection::newQuery()
{
    applySession();
    return QSqlQuery(db_);
}

QSqlDatabase& Connection::database()
{
    applySession();
    return db_;
}

void Connection::applySession()
{
    if (sessionPragmas_.isEmpty())
        return;
    const QStringList pragmas = std::exchange(sessionPragmas_, {});
    QSqlQuery q(db_);
    for (const QString& p : pragmas)
        q.exec(p);
}

void Connection::close()
{
    openConnections().erase(this);
    sessionPragmas_.clear();
    dropStatements();
    fieldCache_[0].clear();
    fieldCache_[1].clear();
    adaptCache_.clear();
    editCache_.clear();
    if (gRegistryGone) { // closed already, before Qt's registry went
        backend_ = Backend::None;
        return;
    }
    if (db_.isValid()) {
        if (db_.isOpen() && txActive_) {
            QSqlQuery q(db_);
            q.exec(QStringLiteral("ROLLBACK"));
        }
        db_.close();
        db_ = QSqlDatabase();
        QSqlDatabase::removeDatabase(name_);
    }
    backend_ = Backend::None;
    userTx_ = txActive_ = false;
    for (Recordset::EditState* e : pendingEdits_)
        e->implicitTx = false;
    pendingEdits_.clear();
    columnCache_.clear();
}

bool Connection::run(const QString& sql, const QVariantList& values, bool forwardOnly, QSqlQuery* q, QString* error)
{
    if (!isOpen()) {
        *error = QStringLiteral("Operation is not allowed when the object is closed.");
        return false;
    }
    *q = newQuery();
    q->setForwardOnly(forwardOnly);
    if (values.isEmpty()) { // nothing to bind; PostgreSQL cannot prepare every statement (DDL)
        if (!q->exec(sql)) {
            *error = errorText(q->lastError());
            return false;
        }
        return true;
    }
    if (!q->prepare(sql)) {
        *error = errorText(q->lastError());
        return false;
    }
    for (const QVariant& v : values)
        q->addBindValue(v);
    if (!q->exec()) {
        *error = errorText(q->lastError());
        return false;
    }
    return true;
}

// A statement inside a PostgreSQL transaction runs under a savepoint: a failing statement must not doom the
// transaction, as it does not on the suite's engine.
bool Connection::statement(const QString& sql, const QVariantList& values, QSqlQuery* q, QString* error)
{
    const bool guard = backend_ == Backend::Postgres && txActive_;
    QString sp;
    if (guard) {
        sp = QStringLiteral("s%1").arg(++savepoint_);
        QSqlQuery g = newQuery();
        if (!g.exec(QStringLiteral("SAVEPOINT ") + sp)) {
            *error = errorText(g.lastError());
            return false;
        }
    }
    // PostgreSQL streams forward-only results row by row, which the savepoint release or a catalogue lookup
    // would cut off: fetch the whole result there.
    const bool ok = run(sql, values, backend_ != Backend::Postgres, q, error);
    if (guard) {
        QSqlQuery g(db_);
        g.exec(ok ? QStringLiteral("RELEASE SAVEPOINT ") + sp : QStringLiteral("ROLLBACK TO SAVEPOINT ") + sp);
    }
    return ok;
}

bool Connection::ensureTx(bool write, QString* error)
{
    if (!userTx_ || txActive_ || backend_ == Backend::Postgres)
        return true;
    if (!control(write ? QStringLiteral("BEGIN IMMEDIATE") : QStringLiteral("BEGIN"), error))
        return false;
    txActive_ = true;
    return true;
}

bool Connection::fetchAll(QSqlQuery& q, Fetched* out, int keyColumns, QString* error)
{
    const QSqlRecord rec = q.record();
    for (int i = 0; i < rec.count(); ++i)
        out->names << rec.fieldName(i);
    const int first = keyColumns;
    out->rows = ResultRows(rec.count() - first);
    while (q.next()) {
        for (int i = 0; i < first; ++i)
            out->keys.push_back(q.value(i));
        for (int i = first; i < rec.count(); ++i)
            out->rows.addVariant(q.value(i));
        out->rows.endRow();
    }
    // next() answers false at the end and on a failed step alike
    const bool ok = !q.lastError().isValid();
    if (!ok) {
        *error = errorText(q.lastError());
        *out = Fetched();
    }
    q = QSqlQuery(); // finished before the catalogue is asked about the fields
    return ok;
}

void Connection::dropStatements()
{
    for (const Prepared& p : std::as_const(statements_))
        sqlite3_finalize(p.statement);
    statements_.clear();
}

void Connection::forgetColumns()
{
    columnCache_.clear();
    fieldCache_[0].clear();
    fieldCache_[1].clear();
    dropStatements();
}

// fetch: 0 runs the statement to its first step (a write), 1 fetches every row, 2 + k every row with an edit's k key
// columns first.
Connection::Direct Connection::runCached(const QString& sql, const QVariantList& values, int fetch, Fetched* out,
                                         QString* error)
{
    if ((backend_ != Backend::Sqlite && backend_ != Backend::Jet) || !db_.isOpen())
        return Direct::NotTaken;
    applySession();
    auto* handle = *static_cast<sqlite3* const*>(db_.driver()->handle().data());
    auto prepared = statements_.find(sql);
    if (prepared == statements_.end()) {
        sqlite3_stmt* st = nullptr;
        const void* tail = nullptr;
        if (sqlite3_prepare16_v3(handle, sql.utf16(), static_cast<int>((sql.size() + 1) * 2), SQLITE_PREPARE_PERSISTENT,
                                 &st, &tail) != SQLITE_OK ||
            !st) {
            sqlite3_finalize(st);
            return Direct::NotTaken;
        }
        if (tail && !QString(static_cast<const QChar*>(tail)).trimmed().isEmpty()) {
            sqlite3_finalize(st);
            return Direct::NotTaken;
        }
        if (statements_.size() >= 64)
            dropStatements();
        Prepared p{st, {}};
        for (int i = 0; i < sqlite3_column_count(st); ++i)
            p.names << QString::fromUtf8(sqlite3_column_name(st, i)).remove(QLatin1Char('"'));
        prepared = statements_.insert(sql, p);
    }
    sqlite3_stmt* const st = prepared->statement;
    if (sqlite3_bind_parameter_count(st) != values.size())
        return Direct::NotTaken;
    for (qsizetype i = 0; i < values.size(); ++i)
        if (!bindValue(st, static_cast<int>(i) + 1, values[i])) {
            sqlite3_clear_bindings(st);
            return Direct::NotTaken;
        }
    const auto finish = [&](bool ok) {
        if (!ok)
            *error = engineText(QString::fromUtf8(sqlite3_errmsg(handle)).trimmed());
        sqlite3_reset(st);
        sqlite3_clear_bindings(st);
        return ok ? Direct::Done : Direct::Failed;
    };
    const int first = fetch >= 2 ? fetch - 2 : 0;
    int rc = sqlite3_step(st);
    if (rc != SQLITE_ROW && rc != SQLITE_DONE)
        return finish(false);
    const int columns = sqlite3_column_count(st);
    if (fetch > 0) {
        if (prepared->names.size() != columns) { // prepared again for a changed table
            QStringList names;
            for (int i = 0; i < columns; ++i)
                names << QString::fromUtf8(sqlite3_column_name(st, i)).remove(QLatin1Char('"'));
            prepared->names = names;
        }
        out->names = prepared->names;
        out->rows = ResultRows(columns - first);
        while (rc == SQLITE_ROW) {
            for (int i = 0; i < first; ++i)
                out->keys.push_back(keyValue(st, i));
            for (int i = first; i < columns; ++i)
                addColumn(out->rows, st, i);
            out->rows.endRow();
            rc = sqlite3_step(st);
        }
        if (rc != SQLITE_DONE) { // a row that cannot be read fails the whole result
            *out = Fetched();
            return finish(false);
        }
    }
    out->affected = sqlite3_changes(handle);
    return finish(true);
}

bool Connection::control(const QString& sql, QString* error)
{
    Fetched none;
    switch (runCached(sql, {}, 0, &none, error)) {
    case Direct::Done:
        return true;
    case Direct::Failed:
        return false;
    case Direct::NotTaken:
        break;
    }
    QSqlQuery q = newQuery();
    if (!q.exec(sql)) {
        *error = errorText(q.lastError());
        return false;
    }
    return true;
}

QString Connection::adapted(const QString& sql)
{
    if (!dialect_->rewrites())
        return sql;
    auto it = adaptCache_.constFind(sql);
    if (it == adaptCache_.constEnd()) {
        if (adaptCache_.size() >= 256)
            adaptCache_.clear();
        it = adaptCache_.insert(sql, dialect_->adapt(sql));
    }
    return *it;
}

std::vector<FieldInfo> Connection::describe(const QString& text, const QStringList& names, int first,
                                            const QString& table)
{
    // the same statement text always gives the same fields while the tables stay as they are
    QHash<QString, std::vector<FieldInfo>>& cache = fieldCache_[first ? 1 : 0];
    const auto cached = cache.constFind(text);
    if (cached != cache.constEnd() && cached->size() == static_cast<size_t>(names.size() - first))
        return *cached;
    const int n = static_cast<int>(names.size()) - first;
    std::vector<FieldInfo> fields = resultFields(tokenize(text), [this](const QString& t) { return columns(t); });
    if (fields.size() == static_cast<size_t>(n)) {
        cache.insert(text, fields);
        return fields;
    }
    // beyond the small parser: the driver's names, unnamed expressions as the engine names them
    fields.clear();
    int expr = 0;
    for (int i = first; i < names.size(); ++i) {
        QString name = names[i];
        const auto t = tokenize(name);
        if (!(t.size() == 1 && t[0].isName()))
            name = QStringLiteral("Expr%1").arg(1000 + expr++);
        fields.push_back({name, table, table.isEmpty() ? QString() : name, JetType::Unknown, 0});
    }
    return fields;
}

bool Connection::query(const Sql& sql, Recordset& rs, QString* error)
{
    rs.close();
    const BoundSql b = bind(sql);
    if (!b.ok()) {
        *error = b.error;
        return false;
    }
    // A read never opens the transaction of BeginTns on SQLite: a long run that only reads between its writes
    // would pin one snapshot and keep the write-ahead log from being reset. The first write begins it.
    const QString text = adapted(b.text);
    Fetched f;
    const Direct direct = runCached(text, b.values, 1, &f, error);
    if (direct == Direct::Failed)
        return false;
    if (direct == Direct::NotTaken) {
        f = Fetched();
        QSqlQuery q;
        if (!statement(text, b.values, &q, error) || !fetchAll(q, &f, 0, error))
            return false;
    }
    std::vector<FieldInfo> fields = describe(b.text, f.names, 0, QString());
    rs.reset(sql.text(), std::move(fields), std::move(f.rows));
    return true;
}

bool Connection::queryForEdit(const Sql& sql, Recordset& rs, QString* error)
{
    rs.close();
    const BoundSql b = bind(sql);
    if (!b.ok()) {
        *error = b.error;
        return false;
    }
    auto cached = editCache_.constFind(b.text);
    if (cached == editCache_.constEnd()) {
        EditText e;
        e.table = singleTable(tokenize(b.text));
        if (!e.table.isEmpty()) {
            if (const SchemaTable* t = schema().table(e.table))
                e.key = t->primaryKey;
            e.locked = dialect_->forEdit(b.text, e.key);
            e.unlocked = dialect_->forEdit(b.text, e.key, false);
        }
        if (editCache_.size() >= 256)
            editCache_.clear();
        cached = editCache_.insert(b.text, e);
    }
    const EditText texts = *cached;
    const QString& table = texts.table;
    if (table.isEmpty()) {
        *error = QStringLiteral("Operation must use an updateable query.");
        return false;
    }
    // As on the suite's engine, a record another connection holds still opens; its Update then fails.
    auto edit = std::make_unique<Recordset::EditState>();
    const int keyCount = static_cast<int>(texts.key.size());
    QString lockConflict;
    Fetched f;
    const auto select = [&](const QString& text) {
        f = Fetched();
        const Direct direct = runCached(text, b.values, 2 + keyCount, &f, error);
        if (direct != Direct::NotTaken)
            return direct == Direct::Done;
        f = Fetched();
        QSqlQuery q;
        return statement(text, b.values, &q, error) && fetchAll(q, &f, keyCount, error);
    };
    if (!lockForEdit(edit.get(), error)) {
        if (!dialect_->isLockConflict(*error))
            return false;
        lockConflict = *error;
    } else if (!select(texts.locked)) {
        releaseEdit(edit.get());
        if (!dialect_->isLockConflict(*error))
            return false;
        lockConflict = *error;
    }
    if (!lockConflict.isEmpty() && !select(texts.unlocked))
        return false;
    std::vector<FieldInfo> fields = describe(b.text, f.names, keyCount, table);
    const size_t rowCount = f.rows.size();
    rs.reset(sql.text(), std::move(fields), std::move(f.rows));
    edit->conn = shared_from_this();
    edit->table = table;
    edit->key = texts.key;
    for (size_t at = 0; at + static_cast<size_t>(keyCount) <= f.keys.size() && keyCount > 0; at += keyCount)
        edit->keys.emplace_back(f.keys.begin() + static_cast<std::ptrdiff_t>(at),
                                f.keys.begin() + static_cast<std::ptrdiff_t>(at) + keyCount);
    if (keyCount == 0)
        edit->keys.resize(rowCount);
    edit->lockConflict = lockConflict;
    rs.makeEditable(std::move(edit));
    if (rowCount == 0)
        rs.addNew();
    return true;
}

bool Connection::execute(const Sql& sql, long* affected, QString* error)
{
    const BoundSql b = bind(sql);
    if (!b.ok()) {
        *error = b.error;
        return false;
    }
    const QString text = adapted(b.text);
    return executeRaw(text, b.values, error, affected);
}

bool Connection::executeRaw(const QString& sql, const QVariantList& values, QString* error, long* affected)
{
    if (!ensureTx(true, error))
        return false;
    Fetched f;
    const Direct direct = runCached(sql, values, 0, &f, error);
    if (direct == Direct::Failed)
        return false;
    if (direct == Direct::NotTaken) {
        QSqlQuery q;
        if (!statement(sql, values, &q, error))
            return false;
        f.affected = static_cast<long>(q.numRowsAffected());
    }
    if (affected)
        *affected = f.affected;
    return commitWrite(error);
}

bool Connection::begin(QString* error)
{
    if (!isOpen()) {
        *error = QStringLiteral("Operation is not allowed when the object is closed.");
        return false;
    }
    if (userTx_) {
        *error = QStringLiteral("Transaction already in progress.");
        return false;
    }
    if (txActive_) { // an edit's own lock becomes part of the transaction
        userTx_ = true;
        return true;
    }
    if (backend_ == Backend::Postgres) {
        QSqlQuery q = newQuery();
        if (!q.exec(QStringLiteral("BEGIN"))) {
            *error = errorText(q.lastError());
            return false;
        }
        txActive_ = true;
    }
    userTx_ = true; // SQLite begins on the first statement, deferred or immediate as that statement needs
    return true;
}

bool Connection::commit(QString* error)
{
    return finishUserTx(true, error);
}

bool Connection::rollback(QString* error)
{
    return finishUserTx(false, error);
}

bool Connection::finishUserTx(bool commitIt, QString* error)
{
    if (!userTx_) {
        *error = QStringLiteral("No transaction is active.");
        return false;
    }
    userTx_ = false;
    return endTx(commitIt, error);
}

// Ends the BEGIN in force, if any; a commit that fails is rolled back so that no transaction is left open.
bool Connection::endTx(bool commitIt, QString* error)
{
    if (!txActive_)
        return true;
    txActive_ = false;
    if (!control(commitIt ? QStringLiteral("COMMIT") : QStringLiteral("ROLLBACK"), error)) {
        if (commitIt) {
            QString ignored;
            control(QStringLiteral("ROLLBACK"), &ignored);
        }
        return false;
    }
    return true;
}

bool Connection::beginLock(QString* error)
{
    if (!control(backend_ == Backend::Postgres ? QStringLiteral("BEGIN") : QStringLiteral("BEGIN IMMEDIATE"), error))
        return false;
    // BEGIN IMMEDIATE takes only the in-memory database the Jet tables hang on: take the Jet file's writer too.
    if (backend_ == Backend::Jet) {
        std::string why;
        if (jet::lockForWrite(*static_cast<sqlite3* const*>(db_.driver()->handle().data()), &why) != 0) {
            *error = QString::fromStdString(why);
            QString ignored;
            control(QStringLiteral("ROLLBACK"), &ignored);
            return false;
        }
    }
    txActive_ = true;
    return true;
}

bool Connection::lockForEdit(Recordset::EditState* edit, QString* error)
{
    if (!isOpen()) {
        *error = QStringLiteral("Operation is not allowed when the object is closed.");
        return false;
    }
    if (userTx_)
        return ensureTx(true, error);
    if (!txActive_ && !beginLock(error))
        return false;
    edit->implicitTx = true;
    pendingEdits_.push_back(edit);
    return true;
}

void Connection::releaseEdit(Recordset::EditState* edit)
{
    if (!edit->implicitTx)
        return;
    dropLock(edit);
    // Nothing uncommitted lies in the lock transaction: every write committed on its own.
    if (pendingEdits_.empty() && txActive_ && !userTx_ && isOpen()) {
        QString ignored;
        endTx(false, &ignored);
    }
}

void Connection::dropLock(Recordset::EditState* edit)
{
    edit->implicitTx = false;
    std::erase(pendingEdits_, edit);
}

bool Connection::lockAgain(Recordset::EditState* edit, const std::vector<QVariant>* key, QString* error)
{
    if (userTx_ || (edit->implicitTx && txActive_))
        return true;
    if (edit->implicitTx) // the lock ended with a BeginTns transaction it had become part of
        dropLock(edit);
    if (!lockForEdit(edit, error))
        return false;
    if (key && !lockRow(edit, *key, error)) {
        releaseEdit(edit);
        return false;
    }
    return true;
}

// PostgreSQL's locks are per row: the row of key, locked inside the transaction in force. A failure is the
// statement's alone (it runs under a savepoint), never the transaction's.
bool Connection::lockRow(const Recordset::EditState* edit, const std::vector<QVariant>& key, QString* error)
{
    if (backend_ != Backend::Postgres || edit->key.isEmpty())
        return true;
    QStringList where;
    for (const QString& k : edit->key)
        where << dialect_->quote(k) + QStringLiteral(" = ?");
    const QString sql = QStringLiteral("SELECT 1 FROM %1 WHERE %2 FOR UPDATE")
                            .arg(dialect_->quote(edit->table), where.join(QLatin1String(" AND ")));
    QSqlQuery q;
    return statement(sql, QVariantList(key.begin(), key.end()), &q, error);
}

bool Connection::writeEdit(Recordset::EditState* edit, const QString& sql, const QVariantList& values, bool oneRow,
                           QString* error)
{
    if (!userTx_ && !edit->implicitTx) {
        *error = QStringLiteral("The record is no longer locked for editing; open it again.");
        return false;
    }
    if (!ensureTx(true, error))
        return false;
    // Under a savepoint, so that an UPDATE that found other than its one row is undone by itself.
    static const QString savepoint = QStringLiteral("SAVEPOINT pel_edit"), undo = QStringLiteral("ROLLBACK TO pel_edit"),
                         done = QStringLiteral("RELEASE pel_edit");
    if (!control(savepoint, error))
        return false;
    Fetched f;
    const Direct direct = runCached(sql, values, 0, &f, error);
    bool ok = direct == Direct::Done;
    if (direct == Direct::NotTaken) {
        QSqlQuery q;
        ok = statement(sql, values, &q, error);
        if (ok)
            f.affected = static_cast<long>(q.numRowsAffected());
    }
    if (ok && oneRow && f.affected != 1) {
        *error = rowChangedByAnotherUser();
        ok = false;
    }
    if (!ok) {
        // the edit keeps its lock: the recordset stays usable
        QString ignored;
        if (!control(undo, &ignored) || !control(done, &ignored)) {
            if (!userTx_)
                endTx(false, &ignored);
            for (Recordset::EditState* e : std::vector(pendingEdits_))
                dropLock(e);
        }
        return false;
    }
    if (!control(done, error))
        return false;
    if (userTx_)
        return true;
    dropLock(edit);
    return commitWrite(error);
}

bool Connection::commitWrite(QString* error)
{
    if (userTx_ || !txActive_)
        return true; // the caller's transaction, or the engine's own autocommit
    if (!endTx(true, error)) {
        // the lock transaction is gone with the failed commit: every pending edit takes its lock again to write
        for (Recordset::EditState* e : std::vector(pendingEdits_))
            dropLock(e);
        return false;
    }
    relockPending();
    return true;
}

// The edits still pending after a commit take their locks again: SQLite's BEGIN IMMEDIATE takes the whole file,
// PostgreSQL each row. An edit whose lock cannot be taken again gives it up and takes it again before its write.
void Connection::relockPending()
{
    if (pendingEdits_.empty())
        return;
    QString why;
    if (!beginLock(&why)) {
        for (Recordset::EditState* e : std::vector(pendingEdits_))
            dropLock(e);
        return;
    }
    for (Recordset::EditState* e : std::vector(pendingEdits_))
        for (const std::vector<QVariant>& key : e->keys)
            if (!key.empty() && !lockRow(e, key, &why)) {
                dropLock(e);
                break;
            }
    if (pendingEdits_.empty()) {
        QString ignored;
        endTx(false, &ignored);
    }
}

std::vector<ColumnInfo> Connection::columns(const QString& table)
{
    const QString key = table.toLower();
    auto it = columnCache_.constFind(key);
    if (it != columnCache_.constEnd())
        return *it;
    std::vector<ColumnInfo> cols;
    QSqlQuery q = newQuery();
    if (backend_ == Backend::Postgres) {
        q.prepare(
            QStringLiteral("select column_name, data_type, character_maximum_length, numeric_precision, numeric_scale "
                           "from information_schema.columns where table_schema = current_schema() and table_name = ? "
                           "order by ordinal_position"));
        q.addBindValue(key);
        if (q.exec())
            while (q.next()) {
                QString type = q.value(1).toString();
                if (!q.value(2).isNull())
                    type += QStringLiteral("(%1)").arg(q.value(2).toInt());
                else if (type == QLatin1String("numeric"))
                    type += QStringLiteral("(%1,%2)").arg(q.value(3).toInt()).arg(q.value(4).toInt());
                ColumnInfo c{q.value(0).toString(), JetType::Unknown, 0};
                c.type = jetTypeFromName(type, &c.size);
                cols.push_back(c);
            }
        // our own tables hold the types of their definition in wider PostgreSQL types
        if (const SchemaTable* t = schema().table(key))
            for (ColumnInfo& c : cols)
                for (const SchemaColumn& d : t->columns)
                    if (d.name.compare(c.name, Qt::CaseInsensitive) == 0) {
                        c.type = d.type;
                        c.size = d.size;
                    }
    } else if (backend_ != Backend::None) {
        QString quoted = table;
        quoted.replace(QLatin1Char('"'), QLatin1String("\"\""));
        if (q.exec(QStringLiteral("PRAGMA table_info(\"%1\")").arg(quoted)))
            while (q.next()) {
                ColumnInfo c{q.value(1).toString(), JetType::Unknown, 0};
                c.type = jetTypeFromName(q.value(2).toString(), &c.size);
                cols.push_back(c);
            }
    }
    if (!cols.empty())
        columnCache_.insert(key, cols);
    return cols;
}

BulkInsert::BulkInsert(Connection& connection, const QString& table, const QStringList& columns)
    : query_(connection.database())
{
    QStringList quoted, marks;
    for (const QString& c : columns) {
        quoted << connection.dialect().quote(c);
        marks << QStringLiteral("?");
    }
    prepared_ = query_.prepare(
        QStringLiteral("INSERT INTO %1 (%2) VALUES (%3)")
            .arg(connection.dialect().quote(table), quoted.join(QLatin1Char(',')), marks.join(QLatin1Char(','))));
    if (!prepared_)
        prepareError_ = errorText(query_.lastError());
}

bool BulkInsert::add(const QVariantList& values, QString* error)
{
    if (!prepared_) {
        *error = prepareError_;
        return false;
    }
    for (qsizetype i = 0; i < values.size(); ++i)
        query_.bindValue(static_cast<int>(i), values[i]);
    if (!query_.exec()) {
        *error = errorText(query_.lastError());
        return false;
    }
    return true;
}

QStringList Connection::tables()
{
    QStringList out;
    QSqlQuery q = newQuery();
    if (backend_ == Backend::Postgres)
        q.exec(QStringLiteral("select table_name from information_schema.tables where table_schema = current_schema() "
                              "order by table_name"));
    else
        q.exec(QStringLiteral("select name from sqlite_master where type = 'table' and name not like 'sqlite_%' "
                              "order by name"));
    while (q.next())
        out << q.value(0).toString();
    return out;
}

} // namespace pel
