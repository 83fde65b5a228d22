// createdb [--jet [--sort general|japanese]]: a new, empty database with every table of the program.
#include "app/db/connection.h"
#include "app/db/dbglobals.h"
#include "app/db/schema.h"
#include "app/home.h"
#include "app/inifile.h"
#include "batch/command.h"
#include "jet/create.h"

namespace pel::batch {

// The suite's database password.
constexpr const char* kJetPassword = "VelQuarto";

// The schema as a new Jet data1.dat (path must not exist): primary keys become the index "PrimaryKey", CREATE
// INDEX ones keep their name; text columns in the given sort order. Also used by demo --jet.
bool createJetDatabase(const QString& path, std::uint16_t sortOrder, QString* error);

namespace {

bool jetType(JetType t, jet::Type* out)
{
    switch (t) {
    case JetType::Boolean: *out = jet::Type::Bool; return true;
    case JetType::Byte: *out = jet::Type::Byte; return true;
    case JetType::Integer: *out = jet::Type::Int; return true;
    case JetType::Long: *out = jet::Type::Long; return true;
    case JetType::Currency: *out = jet::Type::Money; return true;
    case JetType::Single: *out = jet::Type::Float; return true;
    case JetType::Double: *out = jet::Type::Double; return true;
    case JetType::DateTime: *out = jet::Type::DateTime; return true;
    case JetType::Text: *out = jet::Type::Text; return true;
    case JetType::Memo: *out = jet::Type::Memo; return true;
    case JetType::Binary: *out = jet::Type::Binary; return true;
    case JetType::LongBinary: *out = jet::Type::Ole; return true;
    case JetType::Guid: *out = jet::Type::Guid; return true;
    default: return false;
    }
}

} // namespace

bool createJetDatabase(const QString& path, std::uint16_t sortOrder, QString* error)
{
    const Schema& s = schema();
    std::vector<jet::TableSpec> tables;
    for (const SchemaTable& t : s.tables) {
        jet::TableSpec spec;
        spec.name = t.name.toStdString();
        for (const SchemaColumn& c : t.columns) {
            jet::ColumnSpec col;
            col.name = c.name.toStdString();
            if (!jetType(c.type, &col.type)) {
                *error = QStringLiteral("Column %1.%2 has a type a new Jet file does not take.").arg(t.name, c.name);
                return false;
            }
            col.length = static_cast<std::uint16_t>(c.type == JetType::Text && c.size == 0 ? 255 : c.size);
            col.required = c.notNull;
            spec.columns.push_back(col);
        }
        if (!t.primaryKey.isEmpty()) {
            jet::IndexSpec pk;
            pk.name = "PrimaryKey";
            pk.primary = pk.unique = true;
            for (const QString& c : t.primaryKey)
                pk.columns.emplace_back(c.toStdString(), true);
            spec.indexes.push_back(pk);
        }
        for (const SchemaIndex& ix : s.indexes) {
            if (ix.table.compare(t.name, Qt::CaseInsensitive) != 0) continue;
            jet::IndexSpec is;
            is.name = ix.name.toStdString();
            for (const QString& c : ix.columns)
                is.columns.emplace_back(c.toStdString(), true);
            spec.indexes.push_back(is);
        }
        tables.push_back(std::move(spec));
    }
    std::string why;
    if (jet::createDatabase(path.toStdString(), kJetPassword, sortOrder, tables, &why) != jet::OK) {
        *error = QString::fromStdString(why);
        return false;
    }
    return true;
}

namespace {

int run(Context& ctx)
{
    bool jetFile = false;
    std::uint16_t sort = jet::kSortJapanese;
    for (qsizetype i = 0; i < ctx.args.size(); ++i) {
        const QString& a = ctx.args[i];
        if (a == QLatin1String("--jet")) {
            jetFile = true;
        } else if (a == QLatin1String("--sort") && i + 1 < ctx.args.size()) {
            const QString v = ctx.args[++i];
            if (v == QLatin1String("general"))
                sort = jet::kSortGeneral;
            else if (v == QLatin1String("japanese"))
                sort = jet::kSortJapanese;
            else
                return ctx.usage(QStringLiteral("--sort takes general or japanese"));
        } else {
            return ctx.usage(QStringLiteral("bad argument: ") + a);
        }
    }
    QString err;
    if (jetFile) {
        const QString path = programFile(QStringLiteral("data1.dat"));
        if (!createJetDatabase(path, sort, &err)) {
            ctx.err << err << Qt::endl;
            return Stopped;
        }
        ctx.out << path << Qt::endl;
        return Done;
    }
    const QString server = iniDbServer();
    if (server.isEmpty()) {
        const QString path = programFile(QStringLiteral("data1.dat"));
        if (!createSqliteDatabase(path, &err)) {
            ctx.err << err << Qt::endl;
            return Stopped;
        }
        ctx.out << path << Qt::endl;
        return Done;
    }
    auto c = Connection::create();
    if (!c->open(fnConnectString(0, QStringLiteral("data1.dat")), &err) || !createSchema(*c, &err)) {
        ctx.err << err << Qt::endl;
        return Stopped;
    }
    ctx.out << server << Qt::endl;
    return Done;
}

Registrar reg{{"createdb",
               "createdb [--jet [--sort general|japanese]]   create data1.dat (SQLite, or the suite's Jet 4 format with "
               "its password; or the tables on the dbserver) empty",
               &run}};

} // namespace
} // namespace pel::batch
