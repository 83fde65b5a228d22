// Compiled by the tests, never linked: statement text from a runtime array must not compile (RUNTIME_TEXT), the
// same statement from a literal must.
#include "app/db/sql.h"

#include <cstring>

pel::Sql statement()
{
#ifdef RUNTIME_TEXT
    char typed[32];
    std::strcpy(typed, "select * from jyuden");
    return pel::Sql(typed) + " where denno=" + pel::Sql::n(1);
#else
    return pel::Sql("select * from jyuden") + " where denno=" + pel::Sql::n(1);
#endif
}
