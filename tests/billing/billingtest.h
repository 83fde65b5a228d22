#pragma once
// Pieces shared by the settings and billing tests.
#include "app/db/dbclass.h"
#include "app/db/recordset.h"
#include "ui/msgcatalog.h"

#include <QString>
#include <memory>

namespace pel::test
{

inline QString catalogueText(const QString& key)
{
    CatalogueEntry e;
    catalogueEntry(key, QString(), &e);
    return e.text;
}

// Another connection holding one record open for editing for as long as it lives, as another program of the suite
// would.
class RecordHolder
{
public:
    explicit RecordHolder(const Sql& select)
    {
        ok_ = db_.OpenDb() && db_.DbSqlEdit(select, rs_);
        if (!ok_) qWarning("%s", qPrintable(db_.ErrMsg()));
    }
    ~RecordHolder()
    {
        rs_.close();
        db_.CloseDb();
    }
    bool ok() const { return ok_; }

private:
    clsDbClass db_;
    Recordset rs_;
    bool ok_ = false;
};

} // namespace pel::test
