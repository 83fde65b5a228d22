#include "batch/jetfile.h"

#include "app/db/schema.h"
#include "jet/create.h"

namespace pel::batch {

namespace {

bool jetType(JetType t, jet::Type* out)
{
    switch (t) {
    case JetType::Boolean:
        *out = jet::Type::Bool;
        return true;
    case JetType::Byte:
        *out = jet::Type::Byte;
        return true;
    case JetType::Integer:
        *out = jet::Type::Int;
        return true;
    case JetType::Long:
        *out = jet::Type::Long;
        return true;
    case JetType::Currency:
        *out = jet::Type::Money;
        return true;
    case JetType::Single:
        *out = jet::Type::Float;
        return true;
    case JetType::Double:
        *out = jet::Type::Double;
        return true;
    case JetType::DateTime:
        *out = jet::Type::DateTime;
        return true;
    case JetType::Text:
        *out = jet::Type::Text;
        return true;
    case JetType::Memo:
        *out = jet::Type::Memo;
        return true;
    case JetType::Binary:
        *out = jet::Type::Binary;
        return true;
    case JetType::LongBinary:
        *out = jet::Type::Ole;
        return true;
    case JetType::Guid:
        *out = jet::Type::Guid;
        return true;
    default:
        return false;
    }
}

// A default as the schema writes it (0, 'text') in the form Access keeps it (0, "text").
QString accessDefault(const QString& sql)
{
    if (sql.size() < 2 || !sql.startsWith(QLatin1Char('\'')) || !sql.endsWith(QLatin1Char('\'')))
        return sql;
    QString text = sql.mid(1, sql.size() - 2).replace(QStringLiteral("''"), QStringLiteral("'"));
    return QLatin1Char('"') + text.replace(QStringLiteral("\""), QStringLiteral("\"\"")) + QLatin1Char('"');
}

} // namespace

bool createJetDatabase(const QString& path, std::uint16_t sortOrder, QString* error)
{
    const Schema& s = schema();
    std::vector<jet::TableDef> tables;
    for (const SchemaTable& t : s.tables) {
        jet::TableDef layout;
        layout.name = t.name.toStdString();
        for (const SchemaColumn& c : t.columns) {
            jet::ColumnDef col;
            col.name = c.name.toStdString();
            if (!jetType(c.type, &col.type)) {
                *error = QStringLiteral("Column %1.%2 has a type a new Jet file does not take.").arg(t.name, c.name);
                return false;
            }
            col.length = static_cast<std::uint16_t>(c.type == JetType::Text && c.size == 0 ? 255 : c.size);
            col.required = c.notNull;
            col.defaultValue = accessDefault(c.defaultValue).toStdString();
            layout.columns.push_back(col);
        }
        if (!t.primaryKey.isEmpty()) {
            jet::IndexDef pk;
            pk.name = "PrimaryKey";
            pk.primary = pk.unique = true;
            for (const QString& c : t.primaryKey)
                pk.columns.emplace_back(c.toStdString(), true);
            layout.indexes.push_back(pk);
        }
        for (const SchemaIndex& ix : s.indexes) {
            if (ix.table.compare(t.name, Qt::CaseInsensitive) != 0)
                continue;
            jet::IndexDef is;
            is.name = ix.name.toStdString();
            for (const QString& c : ix.columns)
                is.columns.emplace_back(c.toStdString(), true);
            layout.indexes.push_back(is);
        }
        tables.push_back(std::move(layout));
    }
    std::string why;
    if (jet::createDatabase(path.toStdString(), kJetPassword, sortOrder, tables, &why) != jet::OK) {
        *error = QString::fromStdString(why);
        return false;
    }
    return true;
}

} // namespace pel::batch
