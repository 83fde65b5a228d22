#pragma once
// clsDbClass: each screen's own connection to data1.dat, with reading, editing, plain statements and
// transactions. It never shows a dialog: failures are kept in ErrMsg and reported by a false result.
#include "app/db/recordset.h"
#include "app/db/sql.h"

#include <memory>

namespace pel {

class Connection;

class clsDbClass {
public:
    clsDbClass();
    ~clsDbClass();
    clsDbClass(const clsDbClass&) = delete;
    clsDbClass& operator=(const clsDbClass&) = delete;

    bool OpenDb();
    void CloseDb();
    // Reading: a static client-side result with an exact RecCnt.
    bool DbSql(const Sql& sql, Recordset& rs);
    // Changing one record: stands on the first matched row, or on a new row when none matched; the caller sets
    // fields and calls Update. The row stays locked against other connections until then.
    bool DbSqlEdit(const Sql& sql, Recordset& rs);
    // Statements without rows; RecCnt = rows affected.
    bool DbSqlExec(const Sql& sql);
    QString ErrMsg() const { return mstrErr; }
    long RecCnt() const { return mlngRecCnt; }
    [[nodiscard]] bool BeginTns();
    [[nodiscard]] bool CommitTns();
    [[nodiscard]] bool RollbackTns();

    const QString& connectString() const { return mstrConnect; }
    std::shared_ptr<Connection> connection() const { return mcnDb; }

private:
    bool transaction(bool (Connection::*step)(QString*));

    std::shared_ptr<Connection> mcnDb;
    QString mstrConnect;
    QString mstrErr;
    long mlngRecCnt = 0;
};

} // namespace pel
