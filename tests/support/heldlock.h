#pragma once
// Another connection to the home's database holding a lock for as long as it lives, as another program would:
// on PostgreSQL a row (a SELECT … FOR UPDATE), elsewhere the database's write lock (an update of no row).
#include "app/db/connection.h"
#include "app/db/dbglobals.h"
#include "tests/support/testhome.h"

#include <memory>

namespace pel::test {

class HeldLock {
public:
    HeldLock(Backend backend, const QString& rowOnPostgres, const QString& writeElsewhere) : c_(Connection::create())
    {
        QString err;
        const QString& statement = backend == Backend::Postgres ? rowOnPostgres : writeElsewhere;
        ok_ = c_->open(fnConnectString(0, QStringLiteral("data1.dat")), &err) && c_->begin(&err) &&
              c_->executeRaw(c_->dialect().adapt(statement), {}, &err);
        if (!ok_)
            qWarning("%s", qPrintable(err));
    }
    ~HeldLock()
    {
        QString ignored;
        (void)c_->rollback(&ignored);
    }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;
    bool ok() const { return ok_; }

private:
    std::shared_ptr<Connection> c_;
    bool ok_ = false;
};

} // namespace pel::test
