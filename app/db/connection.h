#pragma once
// One open database: data1.dat as SQLite, a Jet 4 file through the Jet module on SQLite, or a PostgreSQL server.
#include "app/db/dialect.h"
#include "app/db/recordset.h"
#include "app/db/sql.h"

#include <QHash>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QString>
#include <memory>

struct sqlite3_stmt;

namespace pel {

class Connection : public std::enable_shared_from_this<Connection> {
public:
    enum class Backend { None, Sqlite, Jet, Postgres };

    static std::shared_ptr<Connection> create() { return std::shared_ptr<Connection>(new Connection()); }
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Opens what the connection string names; false with the engine's error text.
    bool open(const QString& connectString, QString* error);
    void close();
    bool isOpen() const { return backend_ != Backend::None; }
    Backend backend() const { return backend_; }
    const Dialect& dialect() const { return *dialect_; }

    // A static client-side result.
    bool query(const Sql& sql, Recordset& rs, QString* error);
    // A result opened for editing: the rows are locked until the recordset updates or closes.
    bool queryForEdit(const Sql& sql, Recordset& rs, QString* error);
    // A statement without rows; affected = rows changed.
    bool execute(const Sql& sql, long* affected, QString* error);
    // Runs a statement the layer writes itself (DDL, bulk inserts).
    bool executeRaw(const QString& sql, const QVariantList& values, QString* error, long* affected = nullptr);

    bool begin(QString* error);
    bool commit(QString* error);
    bool rollback(QString* error);
    bool inTransaction() const { return userTx_; }

    std::vector<ColumnInfo> columns(const QString& table);
    QStringList tables();
    // After the tables changed: column types, field descriptions and prepared statements are looked up again.
    void forgetColumns();

    // Edits outside BeginTns, as on the suite's engine: the rows of every pending edit stay locked until its
    // Update, and every write (an Update, a plain statement) commits at once on its own, so that closing one
    // recordset without Update can never undo another statement's write. Inside BeginTns everything is the
    // caller's transaction.
    bool lockForEdit(Recordset::EditState* edit, QString* error);
    // Before an edit's write: an edit that gave its lock back (after an earlier Update, or when a commit could not
    // take it again) takes it again, on PostgreSQL with the row of key; false with the engine's text.
    bool lockAgain(Recordset::EditState* edit, const std::vector<QVariant>* key, QString* error);
    // An edit's INSERT or UPDATE, written inside its lock; an UPDATE that changes other than one row is undone and
    // fails as a row another user changed or deleted. Then the edit's share of the lock ends and the write commits
    // (outside BeginTns).
    bool writeEdit(Recordset::EditState* edit, const QString& sql, const QVariantList& values, bool oneRow,
                   QString* error);
    // The edit is done (closed, or no longer to be written); the last one gives the lock back.
    void releaseEdit(Recordset::EditState* edit);

    QSqlDatabase& database();

private:
    // What a statement gave back: the driver's column names, the rows (and row identities for an edit).
    struct Fetched {
        QStringList names;
        ResultRows rows;
        std::vector<QVariant> keys; // an edit's key columns, row after row
        long affected = 0;
    };
    enum class Direct { Done, Failed, NotTaken };

    Connection();
    bool ensureTx(bool write, QString* error);
    bool beginLock(QString* error);
    bool commitWrite(QString* error);
    void relockPending();
    bool lockRow(const Recordset::EditState* edit, const std::vector<QVariant>& key, QString* error);
    void dropLock(Recordset::EditState* edit);
    bool finishUserTx(bool commit, QString* error);
    bool endTx(bool commit, QString* error);
    bool run(const QString& sql, const QVariantList& values, bool forwardOnly, QSqlQuery* q, QString* error);
    bool statement(const QString& sql, const QVariantList& values, QSqlQuery* q, QString* error);
    bool openSqliteFile(const QString& path, const QString& password, QString* error);
    // False with the engine's text when a row cannot be read: a result cut short is no result. The first
    // keyColumns columns are the row's key (an edit's), not fields.
    static bool fetchAll(QSqlQuery& q, Fetched* out, int keyColumns, QString* error);
    std::vector<FieldInfo> describe(const QString& text, const QStringList& names, int first, const QString& table);
    // SQLite and Jet: the statement through a prepared statement kept for its text; NotTaken when it does not
    // prepare cleanly (the driver's own path then runs it and reports the engine's error as always).
    Direct runCached(const QString& sql, const QVariantList& values, int fetch, Fetched* out, QString* error);
    bool control(const QString& sql, QString* error); // BEGIN, COMMIT, ROLLBACK
    QString adapted(const QString& sql);
    void dropStatements();
    // Every statement of the connection starts from here, so that the session's settings come first.
    QSqlQuery newQuery();
    void applySession();

    QString name_;
    QSqlDatabase db_;
    QStringList sessionPragmas_; // SQLite settings run before the connection's first statement
    Backend backend_ = Backend::None;
    std::unique_ptr<Dialect> dialect_;
    bool userTx_ = false;   // BeginTns in force
    bool txActive_ = false; // BEGIN issued (SQLite begins lazily, on the first statement)
    QHash<QString, std::vector<ColumnInfo>> columnCache_;
    QHash<QString, std::vector<FieldInfo>> fieldCache_[2]; // per statement text, read and edit
    QHash<QString, QString> adaptCache_;                   // per statement text: as this backend takes it
    struct EditText {
        QString table;            // the one table the statement reads
        QStringList key;          // its primary key
        QString locked, unlocked; // as this backend opens it for editing, with and without the row lock
    };
    QHash<QString, EditText> editCache_; // per statement text
    struct Prepared {
        sqlite3_stmt* statement = nullptr;
        QStringList names; // the result's column names as the driver gives them
    };
    QHash<QString, Prepared> statements_;
    int savepoint_ = 0;
    std::vector<Recordset::EditState*> pendingEdits_; // outside BeginTns, holding the lock transaction
};

// Many rows into one table through one prepared statement (demo and benchmark databases).
class BulkInsert {
public:
    BulkInsert(Connection& connection, const QString& table, const QStringList& columns);
    bool add(const QVariantList& values, QString* error);

private:
    QSqlQuery query_;
    bool prepared_ = false;
    QString prepareError_;
};

// True when the folder lies on a network file system, where SQLite's write-ahead log does not work (it needs
// shared memory between the machines): such a database is opened with a rollback journal instead.
bool isNetworkFolder(const QString& folder);
// Replaces the probe (tests); nullptr restores the real one.
void setNetworkFolderProbe(bool (*probe)(const QString& folder));

// The error text of an open that found no database file, and the test for it.
QString fileNotFound(const QString& path);
bool isFileNotFound(const QString& error);
// The error text of an edit's write that no longer finds its row (another user changed its key or deleted it).
QString rowChangedByAnotherUser();
// The error text of a failed open when the file is neither SQLite nor Jet 4.
QString unrecognisedFormat(const QString& path);
// True when a statement failed on a value it cannot take (one that breaks the statement, of the wrong kind or too
// long) rather than on the database: the same statement would fail again whatever the database's state.
bool isValueRefusal(const QString& error);

} // namespace pel
