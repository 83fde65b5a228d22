#include "app/db/sql.h"

#include <QRegularExpression>

#include <algorithm>

namespace pel {

Sql::Sql(const QString& fragment, Raw)
{
    if (!fragment.isEmpty())
        parts_.push_back({Kind::Fragment, fragment});
}

Sql Sql::q(const QString& value)
{
    Sql s;
    s.parts_.push_back({Kind::Quoted, value});
    return s;
}

Sql Sql::n(const QString& value)
{
    Sql s;
    s.parts_.push_back({Kind::Number, value});
    return s;
}

Sql Sql::n(qint64 value)
{
    return n(QString::number(value));
}

Sql& Sql::operator+=(const Sql& other)
{
    for (const Part& p : other.parts_) {
        if (p.kind == Kind::Fragment && !parts_.empty() && parts_.back().kind == Kind::Fragment)
            parts_.back().text += p.text;
        else
            parts_.push_back(p);
    }
    return *this;
}

QString Sql::text() const
{
    QString s;
    for (const Part& p : parts_)
        s += p.kind == Kind::Quoted ? QLatin1Char('\'') + p.text + QLatin1Char('\'') : p.text;
    return s;
}

namespace {

// The expression around a value, as the engine names it when the pasted value breaks the statement: from the
// word before the value to the end of the word after it ("name='O'Neil'").
QString brokenExpression(const std::vector<Sql::Part>& parts, size_t at)
{
    QString before = at > 0 && parts[at - 1].kind == Sql::Kind::Fragment ? parts[at - 1].text : QString();
    const qsizetype cut = std::max({before.lastIndexOf(QLatin1Char(' ')), before.lastIndexOf(QLatin1Char(',')),
                                    before.lastIndexOf(QLatin1Char('('))});
    before = before.mid(cut + 1);
    QString after = at + 1 < parts.size() && parts[at + 1].kind == Sql::Kind::Fragment ? parts[at + 1].text : QString();
    qsizetype end = 0;
    while (end < after.size() && after[end] != QLatin1Char(' ') && after[end] != QLatin1Char(',') &&
           after[end] != QLatin1Char(')'))
        ++end;
    const Sql::Part& p = parts[at];
    const QString value = p.kind == Sql::Kind::Quoted ? QLatin1Char('\'') + p.text + QLatin1Char('\'') : p.text;
    return before + value + after.left(end);
}

// An optional minus and ASCII digits only.
bool plainInteger(const QString& text)
{
    qsizetype i = text.startsWith(QLatin1Char('-')) ? 1 : 0;
    if (i == text.size())
        return false;
    for (; i < text.size(); ++i)
        if (text[i] < QLatin1Char('0') || text[i] > QLatin1Char('9'))
            return false;
    return true;
}

} // namespace

BoundSql bind(const Sql& sql)
{
    const auto& parts = sql.parts();
    const auto broken = [&parts](size_t at) {
        return QStringLiteral("Syntax error (missing operator) in query expression '%1'.")
            .arg(brokenExpression(parts, at));
    };
    static const QRegularExpression number(QStringLiteral(R"(^\s*([+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?)\s*$)"));
    BoundSql b;
    for (size_t at = 0; at < parts.size(); ++at) {
        const Sql::Part& p = parts[at];
        switch (p.kind) {
        case Sql::Kind::Fragment:
            b.text += p.text;
            break;
        case Sql::Kind::Quoted:
            if (p.text.contains(QLatin1Char('\''))) {
                b.error = broken(at);
                return b;
            }
            b.text += QLatin1Char('?');
            b.values.append(p.text);
            break;
        case Sql::Kind::Number: {
            // the common case, a plain whole number, without the pattern
            if (plainInteger(p.text)) {
                bool isInt = false;
                const qint64 i = p.text.toLongLong(&isInt);
                if (isInt) {
                    b.text += QLatin1Char('?');
                    b.values.append(i);
                    break;
                }
            }
            const auto m = number.match(p.text);
            if (!m.hasMatch()) {
                b.error = broken(at);
                return b;
            }
            const QString lit = m.captured(1);
            bool isInt = false;
            const qint64 i = lit.toLongLong(&isInt);
            b.text += QLatin1Char('?');
            if (isInt)
                b.values.append(i);
            else
                b.values.append(lit.toDouble());
            break;
        }
        }
    }
    return b;
}

} // namespace pel
