// The property blob: "MR2\0", then blocks (length 4, kind 2): kind 0x80 names every property once (length 2,
// UTF-16 name); kind 0 holds the table's own properties, kind 1 one column's (header length 4, name length 2,
// UTF-16 name), each property a record (length 2, DDL flag 1, data type 1, name index 2, value length 2, value).
#include "jet/props.h"

#include "jet/jet.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace jet
{

namespace
{

constexpr char kMagic[4] = {'M', 'R', '2', '\0'};
constexpr std::uint8_t kMemoType = 0x0C;

std::uint32_t get16(const std::uint8_t* p)
{
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8;
}
std::uint32_t get32(const std::uint8_t* p)
{
    return get16(p) | get16(p + 2) << 16;
}
void add16(std::string& s, std::uint32_t v)
{
    s += static_cast<char>(v & 0xFF);
    s += static_cast<char>(v >> 8 & 0xFF);
}
void add32(std::string& s, std::uint32_t v)
{
    add16(s, v & 0xFFFF);
    add16(s, v >> 16);
}
std::string utf16le(const std::string& utf8)
{
    std::string out;
    for (char16_t c : utf8ToUtf16(utf8))
        add16(out, c);
    return out;
}

} // namespace

std::map<std::string, std::string> readDefaultValues(const std::uint8_t* p, std::size_t n)
{
    std::map<std::string, std::string> out;
    if (n < 4 || std::memcmp(p, kMagic, 4) != 0) return out;
    std::vector<std::string> names;
    std::size_t pos = 4;
    while (pos + 6 <= n) {
        std::size_t len = get32(p + pos);
        unsigned kind = get16(p + pos + 4);
        if (len < 6 || len > n - pos) break;
        const std::uint8_t* b = p + pos + 6;
        std::size_t bn = len - 6;
        if (kind == 0x80) {
            for (std::size_t at = 0; at + 2 <= bn;) {
                std::size_t nl = get16(b + at);
                if (nl > bn - at - 2) break;
                names.push_back(ucs2ToUtf8(b + at + 2, nl));
                at += 2 + nl;
            }
        } else if ((kind == 0 || kind == 1) && bn >= 6) {
            std::size_t header = get32(b);
            std::size_t nl = get16(b + 4);
            if (header >= 6 + nl && header <= bn && nl <= bn - 6) {
                std::string column = ucs2ToUtf8(b + 6, nl);
                for (std::size_t at = header; at + 8 <= bn;) {
                    std::size_t rl = get16(b + at);
                    std::size_t elem = get16(b + at + 4), vl = get16(b + at + 6);
                    if (rl < 8 || rl > bn - at || vl > rl - 8) break;
                    if (kind == 1 && elem < names.size() && names[elem] == "DefaultValue" && b[at + 3] == kMemoType)
                        out[column] = ucs2ToUtf8(b + at + 8, vl);
                    at += rl;
                }
            }
        }
        pos += len;
    }
    return out;
}

std::string writeDefaultValues(const std::map<std::string, std::string>& defaults)
{
    std::string names = utf16le("DefaultValue");
    std::string pool;
    add16(pool, static_cast<std::uint32_t>(names.size()));
    pool += names;
    std::string out(kMagic, 4);
    add32(out, static_cast<std::uint32_t>(6 + pool.size()));
    add16(out, 0x80);
    out += pool;
    // the table's own block, empty
    add32(out, 12);
    add16(out, 0);
    add32(out, 6);
    add16(out, 0);
    for (const auto& [column, expression] : defaults) {
        if (expression.empty()) continue;
        std::string name = utf16le(column), value = utf16le(expression);
        std::string block;
        add32(block, static_cast<std::uint32_t>(6 + name.size()));
        add16(block, static_cast<std::uint32_t>(name.size()));
        block += name;
        add16(block, static_cast<std::uint32_t>(8 + value.size()));
        block += '\x01'; // DDL: set by the definition
        block += static_cast<char>(kMemoType);
        add16(block, 0); // "DefaultValue"
        add16(block, static_cast<std::uint32_t>(value.size()));
        block += value;
        add32(out, static_cast<std::uint32_t>(6 + block.size()));
        add16(out, 1);
        out += block;
    }
    return out;
}

bool defaultFor(const Column& col, Value& out)
{
    const std::string& e = col.defaultValue;
    if (e.empty()) return false;
    std::string text;
    const char q = e[0];
    if (q == '"' || q == '\'') {
        if (e.size() < 2 || e.back() != q) return false;
        for (std::size_t k = 1; k + 1 < e.size(); ++k) {
            if (e[k] == q && (k + 2 >= e.size() || e[++k] != q)) return false; // a lone quote: an expression
            text += e[k];
        }
        if (col.type != Type::Text && col.type != Type::Memo) return false;
    } else {
        // a plain number: sign, digits, one point
        std::size_t k = e[0] == '-' || e[0] == '+' ? 1 : 0;
        bool digits = false, dot = false;
        for (; k < e.size(); ++k) {
            if (e[k] >= '0' && e[k] <= '9')
                digits = true;
            else if (e[k] == '.' && !dot)
                dot = true;
            else
                return false;
        }
        if (!digits) return false;
        text = e;
    }
    out = Value{};
    out.type = col.type;
    out.null = false;
    char* end = nullptr;
    const double d = std::strtod(text.c_str(), &end);
    switch (col.type) {
    case Type::Text:
    case Type::Memo:
        out.s = text;
        return true;
    case Type::Bool:
        out.i = d != 0;
        return true;
    case Type::Byte:
    case Type::Int:
    case Type::Long:
        if (d != std::floor(d) || std::fabs(d) > 2147483647.0) return false;
        out.i = static_cast<std::int64_t>(d);
        return true;
    case Type::Money:
        if (std::fabs(d) > 9e14) return false;
        out.i = std::llround(d * 10000);
        return true;
    case Type::Float:
    case Type::Double:
        out.d = d;
        return true;
    default:
        return false; // dates and the rest: no literal form kept
    }
}

} // namespace jet
