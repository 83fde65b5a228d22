// A new Jet 4 file: header, catalogue (MSysObjects) and the given tables with their indexes, no rows.
#include "jet/create.h"
#include "jet/bytes.h"
#include "jet/file.h"
#include "jet/keys.h"
#include "jet/props.h"
#include "jet/tool.h"

#include <cstring>
#include <ctime>
#include <map>

namespace jet
{

using namespace detail;

namespace
{

constexpr std::uint8_t kHeaderKey[4] = {0xC7, 0xDA, 0x39, 0x6B};
constexpr std::size_t kMapBytes = 64; // inline usage map: 512 pages, or 16 map pages once it turns into references
constexpr std::uint32_t kCatalogueParent = 0x0F000001; // the "Tables" container

void appendName(std::string& s, const std::string& utf8)
{
    std::u16string u = utf8ToUtf16(utf8);
    append16(s, static_cast<std::uint32_t>(u.size() * 2));
    for (char16_t c : u)
        append16(s, c);
}

std::size_t fixedSize(Type t, std::uint16_t length)
{
    if (t == Type::Bool) return 0; // held in the null mask
    const std::size_t n = typeSize(t);
    return n ? n : length;
}

bool isFixed(Type t)
{
    return t != Type::Text && t != Type::Memo && t != Type::Ole && t != Type::Binary;
}

struct Builder {
    std::vector<std::uint8_t> bytes;
    std::uint32_t mapPage = 0;

    std::uint32_t alloc(std::uint8_t type)
    {
        auto n = static_cast<std::uint32_t>(bytes.size() / kPageSize);
        bytes.resize(bytes.size() + kPageSize, 0);
        std::uint8_t* d = &bytes[std::size_t(n) * kPageSize];
        d[0] = type;
        d[1] = 0x01;
        if (type == 0x01) put16(d + 2, kPageSize - 14);
        return n;
    }
    std::uint8_t* page(std::uint32_t n) { return &bytes[std::size_t(n) * kPageSize]; }

    // A row on a data page; its pointer.
    std::uint32_t addRow(std::uint32_t pg, const std::string& row)
    {
        std::uint8_t* d = page(pg);
        unsigned count = le16(d + 12);
        std::size_t top = count ? (le16(d + 14 + 2 * (count - 1)) & 0x1FFF) : kPageSize;
        std::size_t start = top - row.size();
        std::memcpy(d + start, row.data(), row.size());
        put16(d + 14 + 2 * count, static_cast<std::uint32_t>(start));
        put16(d + 12, count + 1);
        put16(d + 2, le16(d + 2) - static_cast<unsigned>(row.size()) - 2);
        return pg << 8 | count;
    }
    // An empty inline usage map.
    std::uint32_t newMap()
    {
        if (mapPage == 0 || le16(page(mapPage) + 2) < 5 + kMapBytes + 2) mapPage = alloc(0x01);
        return addRow(mapPage, std::string(5 + kMapBytes, '\0'));
    }
};

// The definition of one table on its own page(s), with an empty leaf as the root of each index.
Status writeDefinition(Builder& b, const TableDef& layout, bool system, std::uint16_t sortOrder, std::uint32_t* tdef,
                       std::string* error)
{
    const std::size_t numCols = layout.columns.size();
    std::vector<std::uint16_t> fixedOff(numCols, 0), varIdx(numCols, 0);
    std::uint16_t fixedAt = 0, vars = 0;
    for (std::size_t i = 0; i < numCols; ++i) {
        const ColumnDef& c = layout.columns[i];
        if (isFixed(c.type)) {
            fixedOff[i] = fixedAt;
            fixedAt = static_cast<std::uint16_t>(fixedAt + fixedSize(c.type, 0));
        } else {
            varIdx[i] = vars++;
        }
    }
    auto colNumber = [&](const std::string& name) -> int {
        for (std::size_t i = 0; i < numCols; ++i)
            if (layout.columns[i].name == name) return static_cast<int>(i);
        return -1;
    };
    *tdef = b.alloc(0x02);
    const std::uint32_t usage = b.newMap(), free = b.newMap();

    std::string def(63, '\0');
    def[40] = static_cast<char>(system ? 0x53 : 0x4E);
    put16(reinterpret_cast<std::uint8_t*>(&def[41]), static_cast<std::uint32_t>(numCols));
    put16(reinterpret_cast<std::uint8_t*>(&def[43]), vars);
    put16(reinterpret_cast<std::uint8_t*>(&def[45]), static_cast<std::uint32_t>(numCols));
    put32(reinterpret_cast<std::uint8_t*>(&def[47]), static_cast<std::uint32_t>(layout.indexes.size()));
    put32(reinterpret_cast<std::uint8_t*>(&def[51]), static_cast<std::uint32_t>(layout.indexes.size()));
    put32(reinterpret_cast<std::uint8_t*>(&def[55]), usage);
    put32(reinterpret_cast<std::uint8_t*>(&def[59]), free);
    for (std::size_t k = 0; k < layout.indexes.size(); ++k)
        def += std::string(12, '\0');
    for (std::size_t i = 0; i < numCols; ++i) {
        const ColumnDef& c = layout.columns[i];
        std::string e(25, '\0');
        auto* p = reinterpret_cast<std::uint8_t*>(e.data());
        p[0] = static_cast<std::uint8_t>(c.type);
        put16(p + 5, static_cast<std::uint32_t>(i));
        put16(p + 7, varIdx[i]);
        put16(p + 9, static_cast<std::uint32_t>(i));
        if (c.type == Type::Text || c.type == Type::Memo) put16(p + 11, sortOrder);
        p[15] = static_cast<std::uint8_t>((isFixed(c.type) ? 0x01 : 0) | (c.required ? 0 : 0x02));
        if (c.type == Type::Text || c.type == Type::Memo) p[16] = 0x01; // compressed text allowed
        put16(p + 21, fixedOff[i]);
        std::uint16_t length = c.type == Type::Text     ? static_cast<std::uint16_t>(c.length * 2)
                               : c.type == Type::Binary ? c.length
                               : c.type == Type::Bool   ? 1
                                                        : static_cast<std::uint16_t>(fixedSize(c.type, 0));
        put16(p + 23, length);
        def += e;
    }
    for (const ColumnDef& c : layout.columns)
        appendName(def, c.name);
    std::vector<std::uint32_t> roots;
    for (const IndexDef& ix : layout.indexes) {
        if (ix.columns.empty() || ix.columns.size() > 10) {
            if (error) *error = "Index '" + ix.name + "' of '" + layout.name + "' needs 1 to 10 columns.";
            return ERR_ARG;
        }
        std::string e(4, '\0');
        for (std::size_t k = 0; k < 10; ++k) {
            if (k < ix.columns.size()) {
                int n = colNumber(ix.columns[k].first);
                if (n < 0) {
                    if (error) *error = "Index '" + ix.name + "' names no column of '" + layout.name + "'.";
                    return ERR_ARG;
                }
                append16(e, static_cast<std::uint32_t>(n));
                e += static_cast<char>(ix.columns[k].second ? 0x01 : 0x02);
            } else {
                append16(e, 0xFFFF);
                e += '\0';
            }
        }
        std::uint32_t root = b.alloc(0x04);
        put32(b.page(root) + 4, *tdef);
        put16(b.page(root) + 2, kPageSize - kIndexEntriesStart);
        roots.push_back(root);
        append32(e, b.newMap());
        append32(e, root);
        append32(e, 0);
        e += static_cast<char>(0x80 | (ix.primary || ix.unique ? 0x01 : 0) | (ix.primary ? 0x08 : 0));
        e += std::string(5, '\0');
        def += e;
    }
    for (std::size_t k = 0; k < layout.indexes.size(); ++k) {
        std::string e(4, '\0');
        append32(e, static_cast<std::uint32_t>(k));
        append32(e, static_cast<std::uint32_t>(k));
        e += '\0';
        append32(e, 0xFFFFFFFFu);
        append32(e, 0);
        e += '\0';
        e += '\0';
        e += static_cast<char>(layout.indexes[k].primary ? 0x01 : 0x00);
        append32(e, 0);
        def += e;
    }
    for (const IndexDef& ix : layout.indexes)
        appendName(def, ix.name);
    if (def.size() > kPageSize) {
        if (error) *error = "The definition of '" + layout.name + "' does not fit one page.";
        return ERR_ARG;
    }
    std::uint8_t* d = b.page(*tdef);
    std::memcpy(d + 8, def.data() + 8, def.size() - 8);
    d[0] = 0x02;
    d[1] = 0x01;
    put16(d + 2, static_cast<std::uint32_t>(kPageSize - def.size()));
    put32(d + 4, 0);
    put32(d + 8, static_cast<std::uint32_t>(def.size()));
    return OK;
}

TableDef catalogueDef()
{
    TableDef s;
    s.name = "MSysObjects";
    s.columns = {{"Id", Type::Long, 0, true},
                 {"ParentId", Type::Long, 0, true},
                 {"Name", Type::Text, 128, true},
                 {"Type", Type::Int, 0, true},
                 {"DateCreate", Type::DateTime, 0, true},
                 {"DateUpdate", Type::DateTime, 0, true},
                 {"Owner", Type::Binary, 255, false},
                 {"Flags", Type::Long, 0, false},
                 {"Database", Type::Memo, 0, false},
                 {"Connect", Type::Memo, 0, false},
                 {"ForeignName", Type::Text, 128, false},
                 {"RmtInfoShort", Type::Binary, 255, false},
                 {"RmtInfoLong", Type::Ole, 0, false},
                 {"Lv", Type::Ole, 0, false},
                 {"LvProp", Type::Ole, 0, false},
                 {"LvModule", Type::Ole, 0, false},
                 {"LvExtra", Type::Ole, 0, false}};
    return s;
}

double nowDays()
{
    return static_cast<double>(std::time(nullptr)) / 86400.0 + 25569.0;
}

} // namespace

Status createDatabase(const std::string& path, const std::string& password, std::uint16_t sortOrder,
                      const std::vector<TableDef>& tables, std::string* error)
{
    if (os::exists(path)) {
        if (error) *error = "'" + path + "' exists already.";
        return ERR_ARG;
    }
    Builder b;
    b.alloc(0x00); // header
    b.alloc(0x01); // page 1: global page map (kept empty)
    std::uint32_t cat = 0;
    if (Status s = writeDefinition(b, catalogueDef(), true, 0x409, &cat, error); s != OK) return s;
    if (cat != 2) {
        if (error) *error = "The catalogue must start on page 2.";
        return ERR_ARG;
    }
    std::vector<std::uint32_t> tdefs;
    for (const TableDef& t : tables) {
        std::uint32_t pg = 0;
        if (Status s = writeDefinition(b, t, false, sortOrder, &pg, error); s != OK) return s;
        tdefs.push_back(pg);
    }

    // Header: the obscured block holds the code page, no page key, the sort order and the creation date; the
    // password goes in afterwards through the one header writer.
    std::uint8_t* h = b.page(0);
    h[0] = 0x00;
    h[1] = 0x01;
    std::memcpy(h + 4, "Standard Jet DB", 15);
    h[0x14] = 0x01;
    double created = nowDays();
    std::uint8_t block[kHeaderCryptLen] = {};
    auto at = [&](std::size_t off) { return block + (off - kHeaderCryptOffset); };
    put16(at(0x3C), sortOrder == 0x411 ? 932 : 1252);
    put16(at(0x6E), sortOrder);
    std::uint64_t bits;
    std::memcpy(&bits, &created, 8);
    put32(at(kCreationDateOffset), static_cast<std::uint32_t>(bits));
    put32(at(kCreationDateOffset + 4), static_cast<std::uint32_t>(bits >> 32));
    // An empty password, masked like any other.
    auto mask = static_cast<std::uint32_t>(static_cast<std::int32_t>(created));
    for (std::size_t i = 0; i < kPasswordLen; ++i)
        at(kPasswordOffset)[i] = static_cast<std::uint8_t>(mask >> (8 * (i % 4)) & 0xFF);
    rc4(kHeaderKey, 4, block, kHeaderCryptLen);
    std::memcpy(h + kHeaderCryptOffset, block, kHeaderCryptLen);

    {
        os::File out;
        if (!out.open(path, os::Mode::CreateNew)) {
            if (error) *error = "Cannot make '" + path + "': " + os::lastError();
            return ERR_IO;
        }
        if (!out.write(b.bytes.data(), b.bytes.size(), 0) || !out.sync()) {
            if (error) *error = "Cannot write '" + path + "': " + os::lastError();
            out.close();
            os::remove(path);
            return ERR_IO;
        }
    }

    // The catalogue rows go in through the engine's own row writer.
    Database db;
    Status s = db.open(path, "");
    Table catalogue;
    if (s == OK) s = db.readTable(2, catalogue);
    if (s == OK) s = db.begin();
    auto row = [&](std::uint32_t id, std::uint32_t parent, const std::string& name, std::int64_t type,
                   std::int64_t flags, const std::string& props = std::string()) {
        std::vector<Value> v(catalogue.columns.size());
        auto set = [&](const char* col, Value x) {
            for (std::size_t k = 0; k < catalogue.columns.size(); ++k)
                if (catalogue.columns[k].name == col) v[k] = std::move(x);
        };
        Value n;
        n.null = false;
        n.i = id;
        set("Id", n);
        n.i = parent;
        set("ParentId", n);
        n.i = type;
        set("Type", n);
        n.i = flags;
        set("Flags", n);
        Value txt;
        txt.null = false;
        txt.s = name;
        set("Name", txt);
        Value when;
        when.null = false;
        when.d = created;
        set("DateCreate", when);
        set("DateUpdate", when);
        if (!props.empty()) {
            Value blob;
            blob.null = false;
            blob.s = props;
            set("LvProp", blob);
        }
        RowId rid;
        return db.insertRow(catalogue, v, &rid);
    };
    // Containers first (their ids are the parents of the objects), then the catalogue itself and the tables.
    const char* containers[] = {"Tables", "Databases", "Relationships"};
    for (std::uint32_t k = 0; s == OK && k < 3; ++k)
        s = row(kCatalogueParent + k, kCatalogueParent - 1, containers[k], 3, 0);
    if (s == OK) s = row(2, kCatalogueParent, "MSysObjects", 1, static_cast<std::int32_t>(0x80000002u));
    for (std::size_t k = 0; s == OK && k < tables.size(); ++k) {
        std::map<std::string, std::string> defaults;
        for (const ColumnDef& c : tables[k].columns)
            defaults[c.name] = c.defaultValue;
        s = row(tdefs[k], kCatalogueParent, tables[k].name, 1, 0, writeDefaultValues(defaults));
    }
    if (s == OK) s = db.commit();
    if (s != OK) {
        if (error) *error = db.error();
        os::remove(path);
        return s;
    }
    if (!password.empty()) {
        if (int r = setPassword(path, password, error); r != OK) {
            os::remove(path);
            return static_cast<Status>(r);
        }
    }
    return OK;
}

} // namespace jet
