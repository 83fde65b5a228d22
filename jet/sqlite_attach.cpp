#include "jet/sqlite_attach.h"

#include <cstring>

namespace jet {

bool looksLikeJet(const unsigned char* head, std::size_t n)
{
    static const char magic[] = "Standard Jet DB";
    return n >= 4 + sizeof magic - 1 && std::memcmp(head + 4, magic, sizeof magic - 1) == 0;
}

int attach(sqlite3*, const std::string& path, const std::string&, std::string* error)
{
    if (error)
        *error = "Jet database engine not available yet: cannot open '" + path + "'";
    return 1;
}

} // namespace jet
