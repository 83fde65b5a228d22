#include "jet/sqlite_attach.h"

#include "jet/file.h"
#include "jet/jet.h"
#include "jet/props.h"
#include "jet/tool.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

namespace jet
{

namespace
{

// One engine per file per process; connections share it and the last one to close releases it. Only the writing
// connection reads its open transaction (ReadView).
// A file that changed since it was opened (a copy put in its place, a new password) gets a new engine.
struct FileId {
    os::Identity which;
    os::Stamp stamp;
    std::array<char, kHeaderCryptOffset + kHeaderCryptLen> header{}; // a password write may keep size and time
    bool operator==(const FileId&) const = default;
};

bool fileId(const std::string& path, FileId& out)
{
    out.stamp = os::stamp(path);
    if (out.stamp.size < 0 || !os::identity(path, &out.which)) return false;
    out.header.fill(0);
    auto n = static_cast<std::size_t>(std::min<std::int64_t>(out.stamp.size, std::int64_t(out.header.size())));
    os::File f;
    if (n > 0 && f.open(path, os::Mode::Read) && !f.read(out.header.data(), n, 0)) out.header.fill(0);
    return true;
}

struct Engine {
    std::shared_ptr<Database> db;
    std::string password;
    FileId id;
    std::string path;
    sqlite3* writer = nullptr; // the connection whose write transaction is open
};

std::mutex registryMutex;
std::map<std::string, std::weak_ptr<Engine>>& engines()
{
    static std::map<std::string, std::weak_ptr<Engine>> m;
    return m;
}

// What a connection attached: module client data, freed by SQLite when the connection closes.
struct ConnState {
    sqlite3* conn = nullptr;
    std::map<std::string, std::shared_ptr<Engine>> files;
};
std::map<sqlite3*, ConnState*>& connections()
{
    static std::map<sqlite3*, ConnState*> m;
    return m;
}

void destroyConnState(void* p)
{
    auto* st = static_cast<ConnState*>(p);
    {
        std::lock_guard lock(registryMutex);
        auto it = connections().find(st->conn);
        if (it != connections().end() && it->second == st) connections().erase(it);
    }
    delete st;
}

constexpr const char* kModule = "jet";
constexpr const char* kReadOnly = "Jet tables cannot be renamed";

struct VTab {
    sqlite3_vtab base{};
    std::shared_ptr<Engine> engine;
    const Table* table = nullptr;
    sqlite3* conn = nullptr;
};

// For the length of one call from a connection that is not the one writing: the file as of the last commit.
class ReadView
{
public:
    explicit ReadView(sqlite3_vtab* base) : db_(*reinterpret_cast<VTab*>(base)->engine->db)
    {
        const auto* vt = reinterpret_cast<VTab*>(base);
        db_.setCommittedView(vt->engine->writer != vt->conn);
    }
    ~ReadView() { db_.setCommittedView(false); }
    ReadView(const ReadView&) = delete;
    ReadView& operator=(const ReadView&) = delete;

private:
    Database& db_;
};

struct VCursor {
    sqlite3_vtab_cursor base{};
    Cursor cur;
    Value value;
    VCursor(const Database& db, const Table& t) : cur(db, t) {}
};

std::string quoteIdent(const std::string& s)
{
    std::string out = "\"";
    for (char c : s) {
        out += c;
        if (c == '"') out += '"';
    }
    return out + "\"";
}

std::string quoteLiteral(const std::string& s)
{
    std::string out = "'";
    for (char c : s) {
        out += c;
        if (c == '\'') out += '\'';
    }
    return out + "'";
}

std::string unquote(const char* arg)
{
    std::string s(arg ? arg : "");
    if (s.size() >= 2 && (s.front() == '\'' || s.front() == '"') && s.back() == s.front()) {
        char q = s.front();
        std::string out;
        for (std::size_t i = 1; i + 1 < s.size(); ++i) {
            out += s[i];
            if (s[i] == q && s[i + 1] == q) ++i;
        }
        return out;
    }
    return s;
}

void setError(sqlite3_vtab* vt, const std::string& msg)
{
    sqlite3_free(vt->zErrMsg);
    vt->zErrMsg = sqlite3_mprintf("%s", msg.c_str());
}

int sqliteCode(Status s)
{
    switch (s) {
    case ERR_CORRUPT:
        return SQLITE_CORRUPT;
    case ERR_BUSY:
        return SQLITE_BUSY;
    case ERR_CONSTRAINT:
        return SQLITE_CONSTRAINT;
    case ERR_READ_ONLY:
        return SQLITE_READONLY;
    default:
        return SQLITE_ERROR;
    }
}

int xConnect(sqlite3* conn, void* aux, int argc, const char* const* argv, sqlite3_vtab** out, char** err)
{
    try {
        auto* st = static_cast<ConnState*>(aux);
        if (argc < 5) {
            *err = sqlite3_mprintf("jet module needs a file and a table");
            return SQLITE_ERROR;
        }
        std::string path = unquote(argv[3]), name = unquote(argv[4]);
        auto it = st->files.find(path);
        if (it == st->files.end()) {
            *err = sqlite3_mprintf("Jet file '%s' is not attached to this connection", path.c_str());
            return SQLITE_ERROR;
        }
        const Table* t = it->second->db->table(name);
        if (!t) {
            *err = sqlite3_mprintf("No table '%s' in Jet file '%s'", name.c_str(), path.c_str());
            return SQLITE_ERROR;
        }
        std::string sql = "CREATE TABLE x(";
        for (std::size_t k = 0; k < t->columns.size(); ++k) {
            if (k) sql += ", ";
            const Column& col = t->columns[k];
            sql += quoteIdent(col.name) + " " + sqlTypeName(col);
            // Jet compares text without regard to case.
            if (col.type == Type::Text || col.type == Type::Memo) sql += " COLLATE NOCASE";
        }
        sql += ")";
        if (int rc = sqlite3_declare_vtab(conn, sql.c_str()); rc != SQLITE_OK) {
            *err = sqlite3_mprintf("Cannot declare Jet table '%s': %s", name.c_str(), sqlite3_errmsg(conn));
            return rc;
        }
        auto* vt = new VTab;
        vt->engine = it->second;
        vt->table = t;
        vt->conn = conn;
        *out = &vt->base;
        return SQLITE_OK;
    } catch (...) {
        return SQLITE_NOMEM;
    }
}

int xDisconnect(sqlite3_vtab* vt)
{
    delete reinterpret_cast<VTab*>(vt);
    return SQLITE_OK;
}

// idxNum: 0 = full scan; else (column + 1) << 5 | flags.
enum : int { kEq = 1, kLo = 2, kLoIncl = 4, kHi = 8, kHiIncl = 16 };

int xBestIndex(sqlite3_vtab* base, sqlite3_index_info* info)
{
    try {
        auto* vt = reinterpret_cast<VTab*>(base);
        const Database& db = *vt->engine->db;
        double rows = std::max<double>(vt->table->rowCount, 1);
        int bestCol = -1, bestFlags = 0, eqIdx = -1, loIdx = -1, hiIdx = -1;
        // Prefer an equality; else the column with a range bound.
        for (int pass = 0; pass < 2 && bestCol < 0; ++pass) {
            for (int i = 0; i < info->nConstraint; ++i) {
                const auto& c = info->aConstraint[i];
                if (!c.usable || c.iColumn < 0 || db.seekableIndex(*vt->table, c.iColumn) < 0) continue;
                bool eq = c.op == SQLITE_INDEX_CONSTRAINT_EQ;
                if (!eq && vt->table->columns[static_cast<std::size_t>(c.iColumn)].type == Type::Text)
                    continue; // text seeks are equality only
                if (pass == 0 && eq) {
                    bestCol = c.iColumn;
                    bestFlags = kEq;
                    eqIdx = i;
                    break;
                }
                if (pass == 1 && !eq && (bestCol < 0 || bestCol == c.iColumn)) {
                    if ((c.op == SQLITE_INDEX_CONSTRAINT_GT || c.op == SQLITE_INDEX_CONSTRAINT_GE) && loIdx < 0) {
                        bestCol = c.iColumn;
                        loIdx = i;
                        bestFlags |= kLo | (c.op == SQLITE_INDEX_CONSTRAINT_GE ? kLoIncl : 0);
                    } else if ((c.op == SQLITE_INDEX_CONSTRAINT_LT || c.op == SQLITE_INDEX_CONSTRAINT_LE) &&
                               hiIdx < 0) {
                        bestCol = c.iColumn;
                        hiIdx = i;
                        bestFlags |= kHi | (c.op == SQLITE_INDEX_CONSTRAINT_LE ? kHiIncl : 0);
                    }
                }
            }
        }
        if (bestCol < 0) {
            info->idxNum = 0;
            info->estimatedCost = rows * 10;
            info->estimatedRows = static_cast<sqlite3_int64>(rows);
            return SQLITE_OK;
        }
        int arg = 1;
        for (int i : {eqIdx, loIdx, hiIdx})
            if (i >= 0) info->aConstraintUsage[i].argvIndex = arg++;
        info->idxNum = (bestCol + 1) << 5 | bestFlags;
        info->estimatedCost = (bestFlags & kEq) ? 20 : rows * ((bestFlags & (kLo | kHi)) == (kLo | kHi) ? 1 : 4);
        info->estimatedRows = (bestFlags & kEq) ? 4 : static_cast<sqlite3_int64>(rows / 4 + 1);
        return SQLITE_OK;
    } catch (...) {
        return SQLITE_NOMEM;
    }
}

int xOpen(sqlite3_vtab* base, sqlite3_vtab_cursor** out)
{
    try {
        auto* vt = reinterpret_cast<VTab*>(base);
        auto* c = new VCursor(*vt->engine->db, *vt->table);
        *out = &c->base;
        return SQLITE_OK;
    } catch (...) {
        return SQLITE_NOMEM;
    }
}

int xClose(sqlite3_vtab_cursor* c)
{
    delete reinterpret_cast<VCursor*>(c);
    return SQLITE_OK;
}

long long daysFromCivil(long long y, unsigned m, unsigned d)
{
    y -= m <= 2;
    long long era = (y >= 0 ? y : y - 399) / 400;
    auto yoe = static_cast<unsigned>(y - era * 400);
    unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<long long>(doe) - 719468;
}

// "yyyy/mm/dd" with an optional " h:nn" or " h:nn:ss" (hour of one or two digits, as the program writes it), to
// days since 1899-12-30.
bool parseDateTime(const char* text, double& out)
{
    if (!text) return false;
    std::string s(text);
    if (s.size() >= 10 && s[4] == '-' && s[7] == '-') s[4] = s[7] = '/';
    if (s.size() >= 11 && s[10] == 'T') s[10] = ' ';
    std::size_t at = 0;
    // `width` digits exactly, or (width 0) one or two
    auto number = [&](std::size_t width, unsigned& v) {
        std::size_t n = 0;
        v = 0;
        while (at < s.size() && s[at] >= '0' && s[at] <= '9' && n < (width ? width : 2)) {
            v = v * 10 + unsigned(s[at++] - '0');
            ++n;
        }
        return width ? n == width : n >= 1;
    };
    auto literal = [&](char c) { return at < s.size() && s[at++] == c; };
    unsigned y, mo, d, h = 0, mi = 0, sec = 0;
    if (!number(4, y) || !literal('/') || !number(2, mo) || !literal('/') || !number(2, d)) return false;
    if (at < s.size()) {
        if (!literal(' ') || !number(0, h) || !literal(':') || !number(2, mi)) return false;
        if (at < s.size() && (!literal(':') || !number(2, sec))) return false;
        if (at != s.size()) return false;
    }
    if (y < 1000 || mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || sec > 59) return false;
    const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
    static const unsigned monthDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (d > monthDays[mo - 1] + (mo == 2 && leap ? 1u : 0u)) return false; // no 30 February
    out = static_cast<double>(daysFromCivil(y, mo, d) + 25569) + (h * 3600.0 + mi * 60.0 + sec) / 86400.0;
    return true;
}

// SQLite's type of a value given for col. Numeric affinity converts the value in place, so only number columns
// get it: a text keeps '01234' and ' 12345 ' as typed, and a date given as text ('20240102') is never a day number.
int givenType(const Column& col, sqlite3_value* v)
{
    switch (col.type) {
    case Type::Text:
    case Type::Memo:
    case Type::Guid:
    case Type::Binary:
    case Type::Ole:
    case Type::DateTime:
        return sqlite3_value_type(v);
    default:
        return sqlite3_value_numeric_type(v);
    }
}

// The bound as the column's own type; false when it has no exact counterpart (then scan).
bool toKey(const Column& col, sqlite3_value* v, Value& out)
{
    out = Value{};
    out.type = col.type;
    out.null = false;
    int t = givenType(col, v);
    switch (col.type) {
    case Type::Byte:
    case Type::Int:
    case Type::Long:
        if (t == SQLITE_INTEGER) {
            out.i = sqlite3_value_int64(v);
            return true;
        }
        if (t == SQLITE_FLOAT) {
            double d = sqlite3_value_double(v);
            if (std::isfinite(d) && d == std::floor(d) && std::fabs(d) < 9e15) {
                out.i = static_cast<std::int64_t>(d);
                return true;
            }
        }
        return false;
    case Type::Money: {
        if (t == SQLITE_INTEGER) {
            sqlite3_int64 i = sqlite3_value_int64(v);
            if (i > LLONG_MAX / 10000 || i < LLONG_MIN / 10000) return false;
            out.i = i * 10000;
            return true;
        }
        if (t == SQLITE_FLOAT) {
            double d = sqlite3_value_double(v) * 10000;
            if (std::isfinite(d) && d == std::floor(d) && std::fabs(d) < 9e15) {
                out.i = static_cast<std::int64_t>(d);
                return true;
            }
        }
        return false;
    }
    case Type::Double:
    case Type::Float:
        if (t != SQLITE_INTEGER && t != SQLITE_FLOAT) return false;
        out.d = sqlite3_value_double(v);
        return std::isfinite(out.d);
    case Type::DateTime: {
        // Values are "yyyy/mm/dd hh:nn:ss" text: a literal of that form orders like the dates themselves.
        if (t != SQLITE_TEXT) return false;
        return parseDateTime(reinterpret_cast<const char*>(sqlite3_value_text(v)), out.d) && out.d >= 0;
    }
    case Type::Text: {
        // The column's text affinity turns numbers into their text before comparing.
        if (t != SQLITE_TEXT && t != SQLITE_INTEGER) return false;
        const unsigned char* s = sqlite3_value_text(v);
        if (!s) return false;
        out.s.assign(reinterpret_cast<const char*>(s), static_cast<std::size_t>(sqlite3_value_bytes(v)));
        return true;
    }
    default:
        return false;
    }
}

int xFilter(sqlite3_vtab_cursor* base, int idxNum, const char*, int argc, sqlite3_value** argv)
{
    auto* c = reinterpret_cast<VCursor*>(base);
    auto* vt = reinterpret_cast<VTab*>(base->pVtab);
    try {
        // Each scan starts from the last commit of any program, not from pages cached before it.
        if (Status s = vt->engine->db->refresh(); s != OK) {
            setError(&vt->base, vt->engine->db->error());
            return sqliteCode(s);
        }
        ReadView view(base->pVtab);
        Status s;
        bool seeked = false;
        if (idxNum != 0) {
            int col = (idxNum >> 5) - 1;
            int flags = idxNum & 31;
            const Database& db = *vt->engine->db;
            const Table& t = *vt->table;
            int idx = col >= 0 && col < static_cast<int>(t.columns.size()) ? db.seekableIndex(t, col) : -1;
            KeyBound lo, hi;
            bool ok = idx >= 0;
            int arg = 0;
            auto bound = [&](KeyBound& b, bool incl) {
                if (arg >= argc || !toKey(t.columns[static_cast<std::size_t>(col)], argv[arg++], b.value)) ok = false;
                b.present = true;
                b.inclusive = incl;
            };
            if (ok && (flags & kEq)) {
                bound(lo, true);
                hi = lo;
            } else if (ok) {
                if (flags & kLo) bound(lo, flags & kLoIncl);
                if (flags & kHi) bound(hi, flags & kHiIncl);
            }
            // Widen where the stored value and SQLite's comparison can differ (single precision, dates
            // rounded to the second when shown): SQLite checks every row the seek returns.
            Type type = ok ? t.columns[static_cast<std::size_t>(col)].type : Type::Long;
            if (ok && (type == Type::Float || type == Type::DateTime)) {
                lo.inclusive = hi.inclusive = true;
                if (type == Type::DateTime) {
                    lo.value.d -= 1.0 / 86400;
                    hi.value.d += 1.0 / 86400;
                }
            }
            if (ok) {
                std::vector<RowId> rows;
                bool usable = false;
                s = db.indexSeek(t, idx, lo, hi, rows, &usable);
                if (s != OK) {
                    setError(&vt->base, db.error());
                    return sqliteCode(s);
                }
                if (usable) {
                    s = c->cur.seek(std::move(rows));
                    seeked = true;
                }
            }
        }
        if (!seeked) s = c->cur.rewind();
        if (s != OK && s != END) {
            setError(&vt->base, c->cur.error());
            return sqliteCode(s);
        }
        return SQLITE_OK;
    } catch (...) {
        return SQLITE_NOMEM;
    }
}

int xNext(sqlite3_vtab_cursor* base)
{
    auto* c = reinterpret_cast<VCursor*>(base);
    try {
        ReadView view(base->pVtab);
        Status s = c->cur.next();
        if (s != OK && s != END) {
            setError(base->pVtab, c->cur.error());
            return sqliteCode(s);
        }
        return SQLITE_OK;
    } catch (...) {
        return SQLITE_NOMEM;
    }
}

int xEof(sqlite3_vtab_cursor* base)
{
    return reinterpret_cast<VCursor*>(base)->cur.eof();
}

int xColumn(sqlite3_vtab_cursor* base, sqlite3_context* ctx, int i)
{
    auto* c = reinterpret_cast<VCursor*>(base);
    try {
        // A column an UPDATE leaves as it is: not read (xUpdate sees it as unchanged).
        if (sqlite3_vtab_nochange(ctx)) return SQLITE_OK;
        ReadView view(base->pVtab);
        Value& v = c->value;
        if (Status s = c->cur.column(static_cast<std::size_t>(i), v); s != OK) {
            sqlite3_result_error(ctx, c->cur.error().c_str(), -1);
            sqlite3_result_error_code(ctx, sqliteCode(s));
            return sqliteCode(s);
        }
        if (v.null) {
            sqlite3_result_null(ctx);
            return SQLITE_OK;
        }
        switch (v.type) {
        case Type::Bool:
            sqlite3_result_int(ctx, v.i ? -1 : 0);
            break;
        case Type::Byte:
        case Type::Int:
        case Type::Long:
            sqlite3_result_int64(ctx, v.i);
            break;
        case Type::Money:
            if (v.i % 10000 == 0)
                sqlite3_result_int64(ctx, v.i / 10000);
            else
                sqlite3_result_double(ctx, static_cast<double>(v.i) / 10000.0);
            break;
        case Type::Float:
        case Type::Double:
            sqlite3_result_double(ctx, v.d);
            break;
        case Type::DateTime: {
            std::string d = formatDateTime(v.d, '/');
            if (d.empty())
                sqlite3_result_double(ctx, v.d);
            else
                sqlite3_result_text(ctx, d.c_str(), static_cast<int>(d.size()), SQLITE_TRANSIENT);
            break;
        }
        case Type::Text:
        case Type::Memo:
        case Type::Numeric:
            sqlite3_result_text(ctx, v.s.data(), static_cast<int>(v.s.size()), SQLITE_TRANSIENT);
            break;
        case Type::Binary:
        case Type::Ole:
            sqlite3_result_blob(ctx, v.s.data(), static_cast<int>(v.s.size()), SQLITE_TRANSIENT);
            break;
        case Type::Guid: {
            std::string g = formatGuid(v.s);
            sqlite3_result_text(ctx, g.c_str(), static_cast<int>(g.size()), SQLITE_TRANSIENT);
            break;
        }
        }
        return SQLITE_OK;
    } catch (...) {
        sqlite3_result_error_nomem(ctx);
        return SQLITE_NOMEM;
    }
}

int xRowid(sqlite3_vtab_cursor* base, sqlite3_int64* out)
{
    *out = reinterpret_cast<VCursor*>(base)->cur.rowId();
    return SQLITE_OK;
}

const char* kMismatch = "Data type mismatch in criteria expression.";

// A value from SQLite in the column's own type; false with *why set when it has none.
bool fromSqlite(const Column& col, sqlite3_value* v, Value& out, std::string* why)
{
    out = Value{};
    out.type = col.type;
    if (sqlite3_value_type(v) == SQLITE_NULL) return true;
    out.null = false;
    auto mismatch = [&] {
        *why = kMismatch;
        return false;
    };
    int t = givenType(col, v);
    switch (col.type) {
    case Type::Bool:
        if (t != SQLITE_INTEGER && t != SQLITE_FLOAT) return mismatch();
        out.i = sqlite3_value_double(v) != 0 ? 1 : 0;
        return true;
    case Type::Byte:
    case Type::Int:
    case Type::Long:
        if (t == SQLITE_INTEGER) {
            out.i = sqlite3_value_int64(v);
            return true;
        }
        if (t == SQLITE_FLOAT && std::fabs(sqlite3_value_double(v)) < 9e15) {
            out.i = static_cast<std::int64_t>(std::nearbyint(sqlite3_value_double(v)));
            return true;
        }
        return mismatch();
    case Type::Money:
        if (t == SQLITE_INTEGER && std::llabs(sqlite3_value_int64(v)) < LLONG_MAX / 10000) {
            out.i = sqlite3_value_int64(v) * 10000;
            return true;
        }
        if ((t == SQLITE_FLOAT || t == SQLITE_INTEGER) && std::fabs(sqlite3_value_double(v)) < 9e14) {
            out.i = std::llround(sqlite3_value_double(v) * 10000);
            return true;
        }
        if (t == SQLITE_FLOAT || t == SQLITE_INTEGER) {
            *why = "The value for '" + col.name + "' is out of the range of its field.";
            return false;
        }
        return mismatch();
    case Type::Float:
    case Type::Double:
        if (t != SQLITE_INTEGER && t != SQLITE_FLOAT) return mismatch();
        out.d = sqlite3_value_double(v);
        return true;
    case Type::DateTime:
        if (t == SQLITE_TEXT)
            return parseDateTime(reinterpret_cast<const char*>(sqlite3_value_text(v)), out.d) || mismatch();
        if (t != SQLITE_INTEGER && t != SQLITE_FLOAT) return mismatch();
        out.d = sqlite3_value_double(v);
        // the engine's dates: 100/01/01 to 9999/12/31
        if (!(out.d >= -657434.0 && out.d < 2958466.0)) {
            *why = "The value for '" + col.name + "' is out of the range of its field.";
            return false;
        }
        return true;
    case Type::Guid: {
        const char* g = reinterpret_cast<const char*>(sqlite3_value_text(v));
        unsigned b[16];
        if (!g || std::sscanf(g, "{%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X}", &b[3], &b[2],
                              &b[1], &b[0], &b[5], &b[4], &b[7], &b[6], &b[8], &b[9], &b[10], &b[11], &b[12], &b[13],
                              &b[14], &b[15]) != 16)
            return mismatch();
        for (unsigned x : b)
            out.s += static_cast<char>(x);
        return true;
    }
    default: {
        const void* p = col.type == Type::Binary || col.type == Type::Ole
                            ? sqlite3_value_blob(v)
                            : static_cast<const void*>(sqlite3_value_text(v));
        int n = sqlite3_value_bytes(v);
        if (p) out.s.assign(static_cast<const char*>(p), static_cast<std::size_t>(n));
        return true;
    }
    }
}

int fromStatus(sqlite3_vtab* vt, Database& db, Status s)
{
    if (s == OK) return SQLITE_OK;
    setError(vt, db.error());
    return sqliteCode(s);
}

int xUpdate(sqlite3_vtab* base, int argc, sqlite3_value** argv, sqlite3_int64* rowid)
{
    auto* vt = reinterpret_cast<VTab*>(base);
    try {
        Database& db = *vt->engine->db;
        const Table& t = *vt->table;
        if (vt->engine->writer != vt->conn) {
            setError(base, "Jet write outside a transaction of this connection");
            return SQLITE_MISUSE;
        }
        if (argc == 1) return fromStatus(base, db, db.deleteRow(t, sqlite3_value_int64(argv[0])));
        std::vector<Value> values(t.columns.size());
        std::vector<std::pair<std::size_t, Value>> changes;
        bool someUnchanged = false;
        for (std::size_t k = 0; k < t.columns.size() && int(k) + 2 < argc; ++k) {
            if (sqlite3_value_nochange(argv[k + 2])) {
                someUnchanged = true;
                continue;
            }
            std::string why;
            if (!fromSqlite(t.columns[k], argv[k + 2], values[k], &why)) {
                setError(base, why);
                return SQLITE_MISMATCH;
            }
            changes.emplace_back(k, values[k]);
        }
        if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
            if (sqlite3_value_type(argv[1]) != SQLITE_NULL) {
                setError(base, "The row number of a Jet table is given by the engine");
                return SQLITE_MISMATCH;
            }
            // SQLite keeps no declared default of a virtual table and passes a left-out column as null: a null
            // takes the column's default from the file's definition.
            for (std::size_t k = 0; k < t.columns.size(); ++k)
                if (values[k].null) defaultFor(t.columns[k], values[k]);
            RowId id = 0;
            int rc = fromStatus(base, db, db.insertRow(t, values, &id));
            if (rc == SQLITE_OK) *rowid = id;
            return rc;
        }
        if (sqlite3_value_int64(argv[0]) != sqlite3_value_int64(argv[1])) {
            setError(base, "The row number of a Jet table is given by the engine");
            return SQLITE_MISMATCH;
        }
        if (someUnchanged) return fromStatus(base, db, db.updateColumns(t, sqlite3_value_int64(argv[0]), changes));
        return fromStatus(base, db, db.updateRow(t, sqlite3_value_int64(argv[0]), values));
    } catch (...) {
        return SQLITE_NOMEM;
    }
}

int xBegin(sqlite3_vtab* base)
{
    auto* vt = reinterpret_cast<VTab*>(base);
    Engine& e = *vt->engine;
    if (e.writer == vt->conn) return SQLITE_OK; // another table of the same file joined the transaction
    if (e.writer || e.db->inTransaction()) {
        setError(base, "database is locked");
        return SQLITE_BUSY;
    }
    if (int rc = fromStatus(base, *e.db, e.db->begin()); rc != SQLITE_OK) return rc;
    e.writer = vt->conn;
    return SQLITE_OK;
}

int xSync(sqlite3_vtab* base)
{
    auto* vt = reinterpret_cast<VTab*>(base);
    if (vt->engine->writer != vt->conn) return SQLITE_OK;
    return fromStatus(base, *vt->engine->db, vt->engine->db->sync());
}

int xCommit(sqlite3_vtab* base)
{
    auto* vt = reinterpret_cast<VTab*>(base);
    Engine& e = *vt->engine;
    if (e.writer != vt->conn) return SQLITE_OK;
    e.writer = nullptr;
    int rc = fromStatus(base, *e.db, e.db->commit());
    if (rc != SQLITE_OK) e.db->rollback();
    fileId(e.path, e.id); // our own write is no reason for a new engine
    return rc;
}

int xRollback(sqlite3_vtab* base)
{
    auto* vt = reinterpret_cast<VTab*>(base);
    Engine& e = *vt->engine;
    if (e.writer != vt->conn) return SQLITE_OK;
    e.writer = nullptr;
    int rc = fromStatus(base, *e.db, e.db->rollback());
    fileId(e.path, e.id);
    return rc;
}

int xSavepoint(sqlite3_vtab* base, int i)
{
    auto* vt = reinterpret_cast<VTab*>(base);
    if (vt->engine->writer != vt->conn) return SQLITE_OK;
    return fromStatus(base, *vt->engine->db, vt->engine->db->savepoint(i));
}

int xRelease(sqlite3_vtab* base, int i)
{
    auto* vt = reinterpret_cast<VTab*>(base);
    if (vt->engine->writer != vt->conn) return SQLITE_OK;
    return fromStatus(base, *vt->engine->db, vt->engine->db->release(i));
}

int xRollbackTo(sqlite3_vtab* base, int i)
{
    auto* vt = reinterpret_cast<VTab*>(base);
    if (vt->engine->writer != vt->conn) return SQLITE_OK;
    return fromStatus(base, *vt->engine->db, vt->engine->db->rollbackTo(i));
}

int xRename(sqlite3_vtab* vt, const char*)
{
    setError(vt, kReadOnly);
    return SQLITE_READONLY;
}

sqlite3_module makeModule()
{
    sqlite3_module m{};
    m.iVersion = 2;
    m.xCreate = xConnect;
    m.xConnect = xConnect;
    m.xBestIndex = xBestIndex;
    m.xDisconnect = xDisconnect;
    m.xDestroy = xDisconnect;
    m.xOpen = xOpen;
    m.xClose = xClose;
    m.xFilter = xFilter;
    m.xNext = xNext;
    m.xEof = xEof;
    m.xColumn = xColumn;
    m.xRowid = xRowid;
    m.xUpdate = xUpdate;
    m.xBegin = xBegin;
    m.xSync = xSync;
    m.xCommit = xCommit;
    m.xRollback = xRollback;
    m.xRename = xRename;
    m.xSavepoint = xSavepoint;
    m.xRelease = xRelease;
    m.xRollbackTo = xRollbackTo;
    return m;
}

const sqlite3_module module = makeModule();

} // namespace

bool looksLikeJet(const unsigned char* head, std::size_t n)
{
    static const char magic[] = "Standard Jet DB";
    return n >= 4 + sizeof magic - 1 && std::memcmp(head + 4, magic, sizeof magic - 1) == 0;
}

int attach(sqlite3* conn, const std::string& path, const std::string& password, std::string* error)
{
    auto setErr = [&](const std::string& m) {
        if (error) *error = m;
    };
    try {
        std::string key = os::canonical(path);
        if (key.empty()) {
            setErr("Cannot open '" + path + "'.");
            return ERR_IO;
        }
        FileId id;
        if (!fileId(key, id)) {
            setErr("Cannot open '" + path + "'.");
            return ERR_IO;
        }
        std::shared_ptr<Engine> engine;
        ConnState* st = nullptr;
        {
            std::lock_guard lock(registryMutex);
            engine = engines()[key].lock();
            if (engine && !(engine->id == id)) engine.reset();
            if (engine && engine->password != password) {
                setErr("Not a valid password.");
                return ERR_PASSWORD;
            }
            if (!engine) {
                engine = std::make_shared<Engine>();
                engine->db = std::make_shared<Database>();
                engine->password = password;
                engine->id = id;
                engine->path = key;
                if (Status s = engine->db->open(key, password); s != OK) {
                    setErr(engine->db->error());
                    return s;
                }
                engines()[key] = engine;
            }
            auto it = connections().find(conn);
            st = it == connections().end() ? nullptr : it->second;
        }
        if (!st) {
            st = new ConnState;
            st->conn = conn;
            {
                std::lock_guard lock(registryMutex);
                connections()[conn] = st;
            }
            // SQLite owns the state from here: it calls destroyConnState even when registration fails.
            if (sqlite3_create_module_v2(conn, kModule, &module, st, destroyConnState) != SQLITE_OK) {
                setErr(std::string("Cannot register the Jet module: ") + sqlite3_errmsg(conn));
                return ERR_IO;
            }
        }
        st->files[key] = engine;
        for (const Table& t : engine->db->tables()) {
            std::string sql = "CREATE VIRTUAL TABLE IF NOT EXISTS main." + quoteIdent(t.name) + " USING " + kModule +
                              "(" + quoteLiteral(key) + ", " + quoteLiteral(t.name) + ")";
            char* msg = nullptr;
            if (sqlite3_exec(conn, sql.c_str(), nullptr, nullptr, &msg) != SQLITE_OK) {
                setErr("Cannot expose Jet table '" + t.name + "': " + (msg ? msg : sqlite3_errmsg(conn)));
                sqlite3_free(msg);
                return ERR_IO;
            }
        }
        return OK;
    } catch (...) {
        setErr("Out of memory attaching '" + path + "'.");
        return ERR_IO;
    }
}

int lockForWrite(sqlite3* conn, std::string* error)
{
    std::vector<std::string> statements;
    {
        std::lock_guard lock(registryMutex);
        auto it = connections().find(conn);
        if (it == connections().end()) return SQLITE_OK;
        for (const auto& [key, engine] : it->second->files)
            if (!engine->db->tables().empty())
                // A write that touches no row still joins the table to the transaction: xBegin takes the lock.
                statements.push_back("DELETE FROM main." + quoteIdent(engine->db->tables().front().name) + " WHERE 0");
    }
    for (const std::string& sql : statements) {
        char* msg = nullptr;
        int rc = sqlite3_exec(conn, sql.c_str(), nullptr, nullptr, &msg);
        if (rc != SQLITE_OK) {
            if (error) *error = msg ? msg : sqlite3_errmsg(conn);
            sqlite3_free(msg);
            return rc;
        }
    }
    return SQLITE_OK;
}

Database* engineOf(sqlite3* conn, const std::string& path)
{
    std::string key = os::canonical(path);
    std::lock_guard lock(registryMutex);
    auto it = connections().find(conn);
    if (it == connections().end()) return nullptr;
    auto f = it->second->files.find(key);
    return f == it->second->files.end() ? nullptr : f->second->db.get();
}

} // namespace jet
