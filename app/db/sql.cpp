#include "app/db/sql.h"

#include <QRegularExpression>

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

BoundSql bind(const Sql& sql)
{
    // What the engine reports for a statement the concatenation would have broken.
    const auto broken = [&sql](const QString& why) {
        return QStringLiteral("Syntax error (missing operator) in query expression '%1': %2").arg(sql.text(), why);
    };
    static const QRegularExpression number(QStringLiteral(R"(^\s*([+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?)\s*$)"));
    BoundSql b;
    for (const Sql::Part& p : sql.parts()) {
        switch (p.kind) {
        case Sql::Kind::Fragment:
            b.text += p.text;
            break;
        case Sql::Kind::Quoted:
            if (p.text.contains(QLatin1Char('\''))) {
                b.error = broken(QStringLiteral("the text value %1 holds a single quote").arg(p.text));
                return b;
            }
            b.text += QLatin1Char('?');
            b.values.append(p.text);
            break;
        case Sql::Kind::Number: {
            const auto m = number.match(p.text);
            if (!m.hasMatch()) {
                b.error = broken(QStringLiteral("'%1' is not a number").arg(p.text));
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
