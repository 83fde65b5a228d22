#include "jet/tool.h"

#include "jet/bytes.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace jet
{

std::string formatDateTime(double v, char sep)
{
    if (!std::isfinite(v) || std::fabs(v) > 3e6) return {};
    // Negative values count the time forward from midnight of the (earlier) day, like positive ones.
    auto days = static_cast<long long>(std::trunc(v));
    long long secs = std::llround(std::fabs(v - static_cast<double>(days)) * 86400.0);
    if (secs >= 86400) {
        secs -= 86400;
        ++days;
    }
    // Civil date from days since 1970-01-01 (Hinnant's algorithm); 1899-12-30 is day -25569.
    long long z = days - 25569 + 719468;
    long long era = (z >= 0 ? z : z - 146096) / 146097;
    long long doe = z - era * 146097;
    long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    long long y = yoe + era * 400;
    long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    long long mp = (5 * doy + 2) / 153;
    long long d = doy - (153 * mp + 2) / 5 + 1;
    long long m = mp < 10 ? mp + 3 : mp - 9;
    if (m <= 2) ++y;
    char buf[160];
    std::snprintf(buf, sizeof buf, "%04lld%c%02lld%c%02lld %02lld:%02lld:%02lld", y, sep, m, sep, d, secs / 3600,
                  secs / 60 % 60, secs % 60);
    return buf;
}

std::string formatGuid(const std::string& raw)
{
    if (raw.size() != 16) return {};
    auto b = [&](int i) { return static_cast<unsigned>(static_cast<unsigned char>(raw[static_cast<std::size_t>(i)])); };
    char buf[40];
    std::snprintf(buf, sizeof buf, "{%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X}", b(3), b(2),
                  b(1), b(0), b(5), b(4), b(7), b(6), b(8), b(9), b(10), b(11), b(12), b(13), b(14), b(15));
    return buf;
}

std::string formatMoney(std::int64_t scaled)
{
    bool neg = scaled < 0;
    // Magnitude in unsigned arithmetic: the most negative value has no positive counterpart.
    std::uint64_t mag = neg ? 0 - static_cast<std::uint64_t>(scaled) : static_cast<std::uint64_t>(scaled);
    std::string s = std::to_string(mag / 10000);
    if (std::uint64_t frac = mag % 10000) {
        char buf[8];
        std::snprintf(buf, sizeof buf, ".%04u", static_cast<unsigned>(frac));
        s += buf;
        while (s.back() == '0')
            s.pop_back();
    }
    return neg ? "-" + s : s;
}

std::string base64(const std::string& raw)
{
    static const char tab[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((raw.size() + 2) / 3 * 4);
    std::size_t i = 0;
    auto u = [&](std::size_t k) { return static_cast<std::uint32_t>(static_cast<unsigned char>(raw[k])); };
    for (; i + 2 < raw.size(); i += 3) {
        std::uint32_t v = u(i) << 16 | u(i + 1) << 8 | u(i + 2);
        out += tab[v >> 18];
        out += tab[v >> 12 & 63];
        out += tab[v >> 6 & 63];
        out += tab[v & 63];
    }
    if (i < raw.size()) {
        std::uint32_t v = u(i) << 16 | (i + 1 < raw.size() ? u(i + 1) << 8 : 0);
        out += tab[v >> 18];
        out += tab[v >> 12 & 63];
        out += i + 1 < raw.size() ? tab[v >> 6 & 63] : '=';
        out += '=';
    }
    return out;
}

std::string sqlTypeName(const Column& c)
{
    switch (c.type) {
    case Type::Bool:
        return "BIT";
    case Type::Byte:
        return "BYTE";
    case Type::Int:
        return "SHORT";
    case Type::Long:
        return "LONG";
    case Type::Money:
        return "CURRENCY";
    case Type::Float:
        return "SINGLE";
    case Type::Double:
        return "DOUBLE";
    case Type::DateTime:
        return "DATETIME";
    case Type::Binary:
        return "BINARY(" + std::to_string(c.length) + ")";
    case Type::Text:
        return "TEXT(" + std::to_string(c.length / 2) + ")";
    case Type::Ole:
        return "LONGBINARY";
    case Type::Memo:
        return "LONGTEXT";
    case Type::Guid:
        return "GUID";
    case Type::Numeric:
        return "DECIMAL(" + std::to_string(c.precision) + "," + std::to_string(c.scale) + ")";
    }
    return "BLOB";
}

namespace
{

void jsonString(std::ostream& out, const std::string& s)
{
    out << '"';
    for (unsigned char c : s) {
        switch (c) {
        case '"':
            out << "\\\"";
            break;
        case '\\':
            out << "\\\\";
            break;
        case '\n':
            out << "\\n";
            break;
        case '\r':
            out << "\\r";
            break;
        case '\t':
            out << "\\t";
            break;
        default:
            if (c < 0x20) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", c);
                out << buf;
            } else {
                out << static_cast<char>(c);
            }
        }
    }
    out << '"';
}

void jsonNumber(std::ostream& out, double d, bool single)
{
    if (!std::isfinite(d)) {
        out << "null";
        return;
    }
    char buf[64];
    auto res =
        single ? std::to_chars(buf, buf + sizeof buf, static_cast<float>(d)) : std::to_chars(buf, buf + sizeof buf, d);
    out.write(buf, res.ptr - buf);
}

} // namespace

int dumpTable(const Database& db, const Table& t, std::ostream& out, std::string* error)
{
    Cursor cur(db, t);
    Value v;
    Status s = cur.rewind();
    for (; s == OK; s = cur.next()) {
        out << '{';
        for (std::size_t k = 0; k < t.columns.size(); ++k) {
            if (k) out << ',';
            jsonString(out, t.columns[k].name);
            out << ':';
            if ((s = cur.column(k, v)) != OK) break;
            if (v.null) {
                out << "null";
                continue;
            }
            switch (v.type) {
            case Type::Bool:
                out << (v.i ? "true" : "false");
                break;
            case Type::Byte:
            case Type::Int:
            case Type::Long:
                out << v.i;
                break;
            case Type::Money:
                out << formatMoney(v.i);
                break;
            case Type::Float:
                jsonNumber(out, v.d, true);
                break;
            case Type::Double:
                jsonNumber(out, v.d, false);
                break;
            case Type::DateTime: {
                std::string d = formatDateTime(v.d, '-');
                if (d.empty())
                    out << "null";
                else
                    jsonString(out, d);
                break;
            }
            case Type::Text:
            case Type::Memo:
                jsonString(out, v.s);
                break;
            case Type::Binary:
            case Type::Ole:
                jsonString(out, base64(v.s));
                break;
            case Type::Guid:
                jsonString(out, formatGuid(v.s));
                break;
            case Type::Numeric:
                out << v.s;
                break;
            }
        }
        if (s != OK) break;
        out << "}\n";
    }
    if (s != END) {
        if (error) *error = cur.error();
        return s;
    }
    return OK;
}

int dumpTable(const std::string& path, const std::string& password, const std::string& table, std::ostream& out,
              std::string* error)
{
    Database db;
    if (Status s = db.open(path, password); s != OK) {
        if (error) *error = db.error();
        return s;
    }
    const Table* t = db.table(table);
    if (!t) {
        if (error) *error = "No table '" + table + "' in '" + path + "'.";
        return ERR_NOT_FOUND;
    }
    if (Status s = db.beginRead(); s != OK) {
        if (error) *error = db.error();
        return s;
    }
    int r = dumpTable(db, *t, out, error);
    db.endRead();
    return r;
}

int listTables(const std::string& path, const std::string& password, std::ostream& out, std::string* error)
{
    Database db;
    if (Status s = db.open(path, password); s != OK) {
        if (error) *error = db.error();
        return s;
    }
    for (const Table& t : db.tables()) {
        // Count live rows: the definition's counter is not kept exact by every writer.
        Cursor cur(db, t);
        std::uint64_t n = 0;
        Status s = cur.rewind();
        for (; s == OK; s = cur.next())
            ++n;
        if (s != END) {
            if (error) *error = cur.error();
            return s;
        }
        out << t.name << '\t' << n << '\n';
    }
    return OK;
}

int checkFile(const std::string& path, const std::string& password, std::ostream& out, std::string* error)
{
    Database db;
    std::vector<std::string> problems;
    Status s = db.open(path, password);
    if (s == OK) s = db.beginRead();
    if (s == OK) {
        s = db.check(problems);
        db.endRead();
    }
    if (s != OK) {
        if (error) *error = db.error();
        return s;
    }
    if (!db.notice().empty()) out << db.notice() << '\n';
    for (const std::string& p : problems)
        out << p << '\n';
    if (problems.empty()) return OK;
    if (error) *error = std::to_string(problems.size()) + " inconsistencies in '" + path + "'.";
    return ERR_CORRUPT;
}

int setPassword(const std::string& path, const std::string& newPassword, std::string* error)
{
    auto failWith = [&](Status s, const std::string& msg) {
        if (error) *error = msg;
        return s;
    };
    std::u16string pw = utf8ToUtf16(newPassword);
    if (pw.size() > kPasswordLen / 2) return failWith(ERR_ARG, "A database password has at most 20 characters.");
    os::File f;
    if (!f.open(path, os::Mode::ReadWrite)) return failWith(ERR_IO, "Cannot open '" + path + "' for writing.");
    // Every open connection compares the header it read with the file's: the file is taken whole, as a write
    // that changes every page would take it. The locks go with the file when it is closed.
    for (std::uint64_t byte : {kWriterLock, kCommitLock}) {
        switch (f.lock(byte, 1, true, lockWaitMs())) {
        case os::Lock::Got:
            continue;
        case os::Lock::Busy:
            return failWith(ERR_BUSY, "'" + path + "' is in use by another program of ours.");
        case os::Lock::Failed:
            return failWith(ERR_IO, "Cannot lock '" + path + "': " + os::lastError());
        }
    }
    if (os::exists(journalPath(path)))
        return failWith(ERR_BUSY, "'" + path + "' has an unfinished write; open it once to restore it first.");
    if (std::vector<LdbUser> others = ldbUsers(path); !others.empty())
        return failWith(ERR_BUSY, inUseText(path, others));
    std::uint8_t head[kHeaderCryptOffset + kHeaderCryptLen];
    if (!f.read(head, sizeof head, 0)) return failWith(ERR_FORMAT, "'" + path + "' is not a Jet database file.");
    if (head[0] != 0 || std::memcmp(head + 4, "Standard Jet DB", 15) != 0)
        return failWith(ERR_FORMAT, "'" + path + "' is not a Jet database file.");
    if (head[0x14] != 1) return failWith(ERR_FORMAT, "'" + path + "' is not a Jet 4 database.");
    static const std::uint8_t key[4] = {0xC7, 0xDA, 0x39, 0x6B};
    std::uint8_t* hdr = head + kHeaderCryptOffset;
    rc4(key, 4, hdr, kHeaderCryptLen);
    double created = detail::leDouble(hdr + (kCreationDateOffset - kHeaderCryptOffset));
    double day = std::isfinite(created) ? std::floor(created) : 0.0;
    std::uint32_t mask =
        (day >= -2147483648.0 && day <= 2147483647.0) ? static_cast<std::uint32_t>(static_cast<std::int32_t>(day)) : 0;
    std::uint8_t* pwd = hdr + (kPasswordOffset - kHeaderCryptOffset);
    for (std::size_t i = 0; i < kPasswordLen; ++i) {
        std::size_t k = i / 2;
        std::uint16_t c = k < pw.size() ? pw[k] : 0;
        auto plain = static_cast<std::uint8_t>(i % 2 ? c >> 8 : c & 0xFF);
        pwd[i] = static_cast<std::uint8_t>(plain ^ (mask >> (8 * (i % 4)) & 0xFF));
    }
    rc4(key, 4, hdr, kHeaderCryptLen);
    if (!f.write(hdr, kHeaderCryptLen, kHeaderCryptOffset) || !f.sync())
        return failWith(ERR_IO, "Cannot write '" + path + "'.");
    return OK;
}

} // namespace jet
