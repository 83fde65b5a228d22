#include "app/db/dialect.h"

#include <QSet>

namespace pel {

std::vector<Token> tokenize(const QString& sql)
{
    std::vector<Token> out;
    const qsizetype n = sql.size();
    qsizetype i = 0;
    const auto isWordChar = [](QChar c) { return c.isLetterOrNumber() || c == QLatin1Char('_') || c.unicode() > 0x7F; };
    while (i < n) {
        const QChar c = sql[i];
        if (c.isSpace()) {
            ++i;
            continue;
        }
        const qsizetype start = i;
        if (c == QLatin1Char('\'')) {
            QString s;
            ++i;
            while (i < n) {
                if (sql[i] == QLatin1Char('\'')) {
                    if (i + 1 < n && sql[i + 1] == QLatin1Char('\'')) {
                        s += QLatin1Char('\'');
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                s += sql[i++];
            }
            out.push_back({Token::String, s, start});
        } else if (c == QLatin1Char('[') || c == QLatin1Char('"') || c == QLatin1Char('`')) {
            const QChar close = c == QLatin1Char('[') ? QLatin1Char(']') : c;
            const qsizetype end = sql.indexOf(close, i + 1);
            const qsizetype e = end < 0 ? n : end;
            out.push_back({c == QLatin1Char('[') ? Token::Bracketed : Token::Quoted, sql.mid(i + 1, e - i - 1), start});
            i = e + 1;
        } else if (c.isDigit() || (c == QLatin1Char('.') && i + 1 < n && sql[i + 1].isDigit())) {
            while (i < n && (sql[i].isDigit() || sql[i] == QLatin1Char('.')))
                ++i;
            out.push_back({Token::Number, sql.mid(start, i - start), start});
        } else if (isWordChar(c)) {
            while (i < n && isWordChar(sql[i]))
                ++i;
            out.push_back({Token::Word, sql.mid(start, i - start), start});
        } else if (c == QLatin1Char('?')) {
            out.push_back({Token::Param, QStringLiteral("?"), start});
            ++i;
        } else {
            // two-character operators stay one symbol
            static const QStringList two = {QStringLiteral("<="), QStringLiteral(">="), QStringLiteral("<>"),
                                            QStringLiteral("!="), QStringLiteral("||")};
            if (i + 1 < n && two.contains(sql.mid(i, 2))) {
                out.push_back({Token::Symbol, sql.mid(i, 2), start});
                i += 2;
            } else {
                out.push_back({Token::Symbol, QString(c), start});
                ++i;
            }
        }
    }
    return out;
}

bool returnsRows(const QString& sql)
{
    const auto t = tokenize(sql.left(64));
    return !t.empty() && (t.front().is("select") || t.front().isSym('('));
}

namespace {

bool isClauseEnd(const Token& t)
{
    static const char* const words[] = {"where", "group", "order", "having", "union", "limit", "for"};
    for (const char* w : words)
        if (t.is(w))
            return true;
    return t.isSym(')') || t.isSym(';');
}

struct TableRef {
    QString table;
    QString alias; // the name the system qualifies with
};

// Index of the first token at depth 0 matching pred at or after from, or tokens.size().
template <typename Pred> size_t findTop(const std::vector<Token>& t, size_t from, Pred pred)
{
    int depth = 0;
    for (size_t i = from; i < t.size(); ++i) {
        if (depth == 0 && pred(t[i]))
            return i;
        if (t[i].isSym('('))
            ++depth;
        else if (t[i].isSym(')'))
            --depth;
    }
    return t.size();
}

bool isJoinWord(const Token& t)
{
    static const char* const words[] = {"inner", "left", "right", "outer", "cross", "full", "join"};
    for (const char* w : words)
        if (t.is(w))
            return true;
    return false;
}

// The tables of the FROM clause starting at from (the token after FROM); false when one is not a plain table.
bool parseFrom(const std::vector<Token>& t, size_t from, std::vector<TableRef>* refs)
{
    size_t i = from;
    while (i < t.size() && !isClauseEnd(t[i])) {
        if (!t[i].isName())
            return false;
        TableRef r{t[i].text, t[i].text};
        ++i;
        if (i < t.size() && t[i].is("as"))
            ++i;
        if (i < t.size() && t[i].isName() && !isJoinWord(t[i]) && !t[i].is("on") && !isClauseEnd(t[i]))
            r.alias = t[i++].text;
        refs->push_back(r);
        if (i < t.size() && t[i].is("on"))
            i = findTop(t, i + 1, [](const Token& x) { return isClauseEnd(x) || isJoinWord(x) || x.isSym(','); });
        if (i >= t.size() || isClauseEnd(t[i]))
            break;
        if (t[i].isSym(',')) {
            ++i;
            continue;
        }
        while (i < t.size() && isJoinWord(t[i]) && !t[i].is("join"))
            ++i;
        if (i >= t.size() || !t[i].is("join"))
            return false;
        ++i;
    }
    return !refs->empty();
}

} // namespace

QString singleTable(const std::vector<Token>& t)
{
    const size_t sel = findTop(t, 0, [](const Token& x) { return x.is("select"); });
    const size_t from = findTop(t, sel, [](const Token& x) { return x.is("from"); });
    std::vector<TableRef> refs;
    if (from >= t.size() || !parseFrom(t, from + 1, &refs) || refs.size() != 1)
        return QString();
    return refs.front().table;
}

std::vector<FieldInfo> resultFields(const std::vector<Token>& t, const ColumnLookup& columns)
{
    const size_t sel = findTop(t, 0, [](const Token& x) { return x.is("select"); });
    if (sel >= t.size())
        return {};
    size_t begin = sel + 1;
    if (begin < t.size() && (t[begin].is("distinct") || t[begin].is("all")))
        ++begin;
    if (begin + 1 < t.size() && t[begin].is("top") && t[begin + 1].kind == Token::Number)
        begin += 2;
    const size_t from = findTop(t, begin, [](const Token& x) { return x.is("from") || x.is("union"); });
    std::vector<TableRef> refs;
    if (from < t.size() && t[from].is("from") && !parseFrom(t, from + 1, &refs))
        return {};

    struct Item {
        FieldInfo f;
        bool columnRef = false;
    };
    std::vector<Item> items;
    int exprCount = 0;
    const auto tableOf = [&](const QString& qualifier) -> const TableRef* {
        for (const TableRef& r : refs)
            if (r.alias.compare(qualifier, Qt::CaseInsensitive) == 0)
                return &r;
        for (const TableRef& r : refs)
            if (r.table.compare(qualifier, Qt::CaseInsensitive) == 0)
                return &r;
        return nullptr;
    };
    const auto addTable = [&](const TableRef& r) {
        const auto cols = columns(r.table);
        if (cols.empty())
            return false;
        for (const ColumnInfo& c : cols)
            items.push_back({{c.name, r.alias, c.name, c.type, c.size}, true});
        return true;
    };

    size_t i = begin;
    while (i < from) {
        const size_t end = std::min(from, findTop(t, i, [](const Token& x) { return x.isSym(','); }));
        const std::vector<Token> e(t.begin() + static_cast<std::ptrdiff_t>(i), t.begin() + static_cast<std::ptrdiff_t>(end));
        i = end + 1;
        if (e.empty())
            return {};
        if (e.size() == 1 && e[0].isSym('*')) {
            for (const TableRef& r : refs)
                if (!addTable(r))
                    return {};
            continue;
        }
        if (e.size() == 3 && e[0].isName() && e[1].isSym('.') && e[2].isSym('*')) {
            const TableRef* r = tableOf(e[0].text);
            if (!r || !addTable(*r))
                return {};
            continue;
        }
        if (e.size() >= 3 && e[e.size() - 2].is("as") && e.back().isName()) {
            items.push_back({{e.back().text, QString(), QString(), JetType::Unknown, 0}, false});
            // a plain column renamed keeps its type
            if (e.size() == 3 || (e.size() == 5 && e[1].isSym('.'))) {
                const QString col = e.size() == 3 ? e[0].text : e[2].text;
                const TableRef* r = e.size() == 5 ? tableOf(e[0].text) : (refs.size() == 1 ? &refs[0] : nullptr);
                if (r)
                    for (const ColumnInfo& c : columns(r->table))
                        if (c.name.compare(col, Qt::CaseInsensitive) == 0) {
                            items.back().f.table = r->alias;
                            items.back().f.column = c.name;
                            items.back().f.type = c.type;
                            items.back().f.size = c.size;
                        }
            }
            continue;
        }
        if ((e.size() == 1 && e[0].isName()) || (e.size() == 3 && e[0].isName() && e[1].isSym('.') && e[2].isName())) {
            const QString col = e.back().text;
            const TableRef* r = nullptr;
            ColumnInfo info{col, JetType::Unknown, 0};
            if (e.size() == 3) {
                r = tableOf(e[0].text);
                if (!r)
                    return {};
            }
            for (const TableRef& cand : refs) {
                if (r && &cand != r)
                    continue;
                bool found = false;
                for (const ColumnInfo& c : columns(cand.table))
                    if (c.name.compare(col, Qt::CaseInsensitive) == 0) {
                        info = c;
                        found = true;
                    }
                if (found) {
                    r = &cand;
                    break;
                }
            }
            items.push_back({{info.name, r ? r->alias : QString(), info.name, info.type, info.size}, r != nullptr});
            continue;
        }
        items.push_back({{QStringLiteral("Expr%1").arg(1000 + exprCount++), QString(), QString(), JetType::Unknown, 0},
                         false});
    }

    std::vector<FieldInfo> fields;
    fields.reserve(items.size());
    for (const Item& it : items) {
        FieldInfo f = it.f;
        if (it.columnRef) {
            int sameName = 0;
            for (const Item& other : items)
                if (other.columnRef && other.f.column.compare(f.column, Qt::CaseInsensitive) == 0 &&
                    other.f.table.compare(f.table, Qt::CaseInsensitive) != 0)
                    ++sameName;
            if (sameName > 0)
                f.name = f.table + QLatin1Char('.') + f.column;
        }
        fields.push_back(f);
    }
    return fields;
}

namespace {

QString quoteName(QString name)
{
    name.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + name + QLatin1Char('"');
}

class SqliteDialect final : public Dialect {
public:
    QString adapt(const QString& sql) const override { return sql; }
    bool rewrites() const override { return false; }
    QString forEdit(const QString& sql, const QStringList& key, bool) const override
    {
        return keyColumnsFirst(sql, key, *this);
    }
    QString quote(const QString& name) const override { return quoteName(name); }
    bool isLockConflict(const QString& error) const override
    {
        return error.contains(QLatin1String("database is locked")) ||
               error.contains(QLatin1String("database table is locked"));
    }
};

class PostgresDialect final : public Dialect {
public:
    QString adapt(const QString& sql) const override
    {
        // Words PostgreSQL reserves but the suite uses as table or column names.
        static const QSet<QString> reserved = {QStringLiteral("left"), QStringLiteral("offset"),
                                               QStringLiteral("right"), QStringLiteral("user"),
                                               QStringLiteral("limit"), QStringLiteral("top")};
        const auto t = tokenize(sql);
        QString out;
        qsizetype copied = 0;
        for (size_t i = 0; i < t.size(); ++i) {
            const Token& tok = t[i];
            QString replacement;
            if (tok.kind == Token::Bracketed) {
                replacement = quote(tok.text.toLower());
            } else if (tok.kind == Token::Word && reserved.contains(tok.text.toLower())) {
                // after FROM, INTO, UPDATE, JOIN or TABLE it names a table, whatever follows
                const bool tableName = i > 0 && (t[i - 1].is("from") || t[i - 1].is("into") || t[i - 1].is("update") ||
                                                 t[i - 1].is("join") || t[i - 1].is("table"));
                const bool keywordUse = !tableName && i + 1 < t.size() &&
                                        (t[i + 1].is("join") || t[i + 1].is("outer") || t[i + 1].isSym('(') ||
                                         t[i + 1].kind == Token::Number || t[i + 1].kind == Token::Param);
                if (!keywordUse)
                    replacement = quote(tok.text.toLower());
            }
            if (replacement.isNull())
                continue;
            const qsizetype len = tok.kind == Token::Bracketed ? tok.text.size() + 2 : tok.text.size();
            out += sql.mid(copied, tok.pos - copied) + replacement;
            copied = tok.pos + len;
        }
        out += sql.mid(copied);
        return out;
    }
    QString forEdit(const QString& sql, const QStringList& key, bool lock) const override
    {
        QString s = keyColumnsFirst(adapt(sql), key, *this);
        while (s.endsWith(QLatin1Char(';')) || s.endsWith(QLatin1Char(' ')))
            s.chop(1);
        return lock ? s + QStringLiteral(" FOR UPDATE") : s;
    }
    bool isLockConflict(const QString& error) const override
    {
        return error.contains(QLatin1String("lock timeout")) || error.contains(QLatin1String("could not obtain lock")) ||
               error.contains(QLatin1String("(55P03)"));
    }
    QString quote(const QString& name) const override { return quoteName(name.toLower()); }
};

} // namespace

QString keyColumnsFirst(const QString& sql, const QStringList& key, const Dialect& dialect)
{
    const auto t = tokenize(sql);
    const size_t sel = findTop(t, 0, [](const Token& x) { return x.is("select"); });
    if (sel >= t.size())
        return sql;
    QString columns;
    for (qsizetype i = 0; i < key.size(); ++i)
        columns += QStringLiteral(" %1 AS \"__k%2\",").arg(dialect.quote(key[i])).arg(i);
    const qsizetype at = t[sel].pos + t[sel].text.size();
    return sql.left(at) + columns + sql.mid(at);
}

std::unique_ptr<Dialect> makeSqliteDialect()
{
    return std::make_unique<SqliteDialect>();
}

std::unique_ptr<Dialect> makePostgresDialect()
{
    return std::make_unique<PostgresDialect>();
}

} // namespace pel
