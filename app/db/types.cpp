#include "app/db/types.h"

#include <QDateTime>
#include <QRegularExpression>

#include <cmath>

namespace pel {

namespace {

bool isBlank(QChar c)
{
    return c == QLatin1Char(' ') || (c >= QLatin1Char('\t') && c <= QLatin1Char('\r'));
}

// "NAME", "NAME(n)" or "NAME(n, m)", blanks allowed around each part; read by hand because the driver asks for every
// column of every table a screen opens on, before the screen shows.
struct DeclaredType {
    QString base;
    QStringView size;
    QStringView scale;
    bool ok = false;
};

DeclaredType splitDeclared(QStringView s)
{
    DeclaredType d;
    qsizetype i = 0;
    const qsizetype n = s.size();
    auto blanks = [&] {
        while (i < n && isBlank(s[i]))
            ++i;
    };
    auto number = [&] {
        const qsizetype from = i;
        while (i < n && s[i].isDigit() && s[i].unicode() < 0x80)
            ++i;
        const QStringView digits = s.mid(from, i - from);
        blanks();
        return digits;
    };
    auto take = [&](char c) {
        if (i >= n || s[i] != QLatin1Char(c))
            return false;
        ++i;
        blanks();
        return true;
    };
    blanks();
    const qsizetype from = i;
    while (i < n && (s[i] == QLatin1Char(' ') || (s[i].unicode() < 0x80 && s[i].isLetter())))
        ++i;
    const QStringView name = s.mid(from, i - from).trimmed();
    if (name.isEmpty())
        return d;
    blanks();
    if (take('(')) {
        d.size = number();
        if (d.size.isEmpty() || (take(',') && (d.scale = number()).isEmpty()) || !take(')'))
            return d;
    }
    if (i != n)
        return d;
    d.base = name.toString().toUpper();
    d.ok = true;
    return d;
}

} // namespace

JetType jetTypeFromName(const QString& declared, int* size)
{
    DeclaredType d = splitDeclared(declared);
    if (!d.ok)
        d = DeclaredType{declared.trimmed().toUpper(), {}, {}, false};
    if (size)
        *size = d.size.isEmpty() ? 0 : d.size.toInt();
    static const QHash<QString, JetType> names = {
        {QStringLiteral("BIT"), JetType::Boolean},          {QStringLiteral("BOOLEAN"), JetType::Boolean},
        {QStringLiteral("BYTE"), JetType::Byte},            {QStringLiteral("SHORT"), JetType::Integer},
        {QStringLiteral("SMALLINT"), JetType::Integer},     {QStringLiteral("LONG"), JetType::Long},
        {QStringLiteral("INTEGER"), JetType::Long},         {QStringLiteral("INT"), JetType::Long},
        {QStringLiteral("BIGINT"), JetType::Long},          {QStringLiteral("COUNTER"), JetType::Long},
        {QStringLiteral("CURRENCY"), JetType::Currency},    {QStringLiteral("SINGLE"), JetType::Single},
        {QStringLiteral("REAL"), JetType::Single},          {QStringLiteral("DOUBLE"), JetType::Double},
        {QStringLiteral("DOUBLE PRECISION"), JetType::Double}, {QStringLiteral("DATETIME"), JetType::DateTime},
        {QStringLiteral("TIMESTAMP WITHOUT TIME ZONE"), JetType::DateTime},
        {QStringLiteral("TIMESTAMP"), JetType::DateTime},   {QStringLiteral("TEXT"), JetType::Text},
        {QStringLiteral("CHARACTER VARYING"), JetType::Text}, {QStringLiteral("VARCHAR"), JetType::Text},
        {QStringLiteral("LONGTEXT"), JetType::Memo},        {QStringLiteral("MEMO"), JetType::Memo},
        {QStringLiteral("BINARY"), JetType::Binary},        {QStringLiteral("LONGBINARY"), JetType::LongBinary},
        {QStringLiteral("BYTEA"), JetType::LongBinary},     {QStringLiteral("GUID"), JetType::Guid},
        {QStringLiteral("DECIMAL"), JetType::Decimal},
    };
    JetType t = names.value(d.base, JetType::Unknown);
    // PostgreSQL reports "text" for a memo column; our TEXT(n) always has a size.
    if (t == JetType::Text && size && *size == 0)
        t = JetType::Memo;
    if (d.base == QLatin1String("NUMERIC"))
        t = d.size == QLatin1String("19") && d.scale == QLatin1String("4") ? JetType::Currency : JetType::Decimal;
    return t;
}

QString jetTypeName(JetType type, int size)
{
    switch (type) {
    case JetType::Boolean: return QStringLiteral("BIT");
    case JetType::Byte: return QStringLiteral("BYTE");
    case JetType::Integer: return QStringLiteral("SHORT");
    case JetType::Long: return QStringLiteral("LONG");
    case JetType::Currency: return QStringLiteral("CURRENCY");
    case JetType::Single: return QStringLiteral("SINGLE");
    case JetType::Double: return QStringLiteral("DOUBLE");
    case JetType::DateTime: return QStringLiteral("DATETIME");
    case JetType::Text: return QStringLiteral("TEXT(%1)").arg(size);
    case JetType::Memo: return QStringLiteral("LONGTEXT");
    case JetType::Binary: return QStringLiteral("BINARY(%1)").arg(size);
    case JetType::LongBinary: return QStringLiteral("LONGBINARY");
    case JetType::Guid: return QStringLiteral("GUID");
    case JetType::Decimal: return QStringLiteral("DECIMAL");
    case JetType::Unknown: break;
    }
    return QString();
}

int adoTypeCode(JetType type)
{
    switch (type) {
    case JetType::Boolean: return 11;
    case JetType::Byte: return 17;
    case JetType::Integer: return 2;
    case JetType::Long: return 3;
    case JetType::Currency: return 6;
    case JetType::Single: return 4;
    case JetType::Double: return 5;
    case JetType::DateTime: return 7;
    case JetType::Text: return 202;
    case JetType::Memo: return 203;
    case JetType::Binary: return 128;
    case JetType::LongBinary: return 205;
    case JetType::Guid: return 72;
    case JetType::Decimal: return 131;
    case JetType::Unknown: break;
    }
    return 0;
}

bool isNumeric(JetType type)
{
    switch (type) {
    case JetType::Byte:
    case JetType::Integer:
    case JetType::Long:
    case JetType::Currency:
    case JetType::Single:
    case JetType::Double:
    case JetType::Decimal:
        return true;
    default:
        return false;
    }
}

QString numberToText(double v, int significant)
{
    if (std::isnan(v) || std::isinf(v))
        return QString::number(v);
    if (v == std::trunc(v) && std::fabs(v) < 1e18)
        return QString::number(static_cast<qint64>(v));
    // Round to the significant digits, then write without exponent and without trailing zeros.
    const int magnitude = v == 0 ? 0 : static_cast<int>(std::floor(std::log10(std::fabs(v))));
    const int decimals = std::max(0, significant - 1 - magnitude);
    QString s = QString::number(v, 'f', std::min(decimals, 30));
    if (s.contains(QLatin1Char('.'))) {
        while (s.endsWith(QLatin1Char('0')))
            s.chop(1);
        if (s.endsWith(QLatin1Char('.')))
            s.chop(1);
    }
    if (s == QLatin1String("-0"))
        s = QStringLiteral("0");
    return s;
}

namespace {

QDateTime parseDateTime(const QString& text)
{
    static const QRegularExpression re(
        QStringLiteral(R"(^\s*(\d{4})[/-](\d{1,2})[/-](\d{1,2})(?:[ T](\d{1,2}):(\d{1,2})(?::(\d{1,2})(?:\.\d+)?)?)?\s*$)"));
    const auto m = re.match(text);
    if (!m.hasMatch())
        return QDateTime();
    const QDate d(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt());
    const QTime t(m.captured(4).toInt(), m.captured(5).toInt(), m.captured(6).toInt());
    if (!d.isValid() || !t.isValid())
        return QDateTime();
    return QDateTime(d, t);
}

} // namespace

QString fnDateText(const QDateTime& dt)
{
    // the short date of a Japanese system, and the time with the hour unpadded; midnight is the date alone
    if (dt.time() == QTime(0, 0))
        return dt.date().toString(QStringLiteral("yyyy/MM/dd"));
    return dt.toString(QStringLiteral("yyyy/MM/dd H:mm:ss"));
}

QString valueToText(const QVariant& value, JetType type)
{
    if (!value.isValid() || value.isNull())
        return QString();
    switch (type) {
    case JetType::Boolean:
        return value.toBool() || value.toLongLong() != 0 ? QStringLiteral("True") : QStringLiteral("False");
    case JetType::Byte:
    case JetType::Integer:
    case JetType::Long:
        return numberToText(value.toDouble());
    case JetType::Currency:
        return numberToText(std::round(value.toDouble() * 10000.0) / 10000.0);
    case JetType::Single:
        return numberToText(value.toDouble(), 7);
    case JetType::Double:
    case JetType::Decimal:
        return numberToText(value.toDouble());
    case JetType::DateTime: {
        const QDateTime dt = value.typeId() == QMetaType::QDateTime ? value.toDateTime() : parseDateTime(value.toString());
        return dt.isValid() ? fnDateText(dt) : value.toString();
    }
    default:
        break;
    }
    switch (value.typeId()) {
    case QMetaType::Double:
    case QMetaType::Float:
        return numberToText(value.toDouble());
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("True") : QStringLiteral("False");
    case QMetaType::QDateTime:
        return fnDateText(value.toDateTime());
    case QMetaType::QDate:
        return fnDateText(value.toDate().startOfDay());
    default:
        return value.toString();
    }
}

bool convertForColumn(const QVariant& value, JetType type, int size, const QString& column, QVariant* out,
                      QString* error)
{
    const auto mismatch = [&](const QString& text) {
        if (error)
            *error = QStringLiteral("Data type mismatch: '%1' cannot be stored in field '%2'.").arg(text, column);
        return false;
    };
    if (!value.isValid() || value.isNull()) {
        *out = QVariant();
        return true;
    }
    const QString text = value.toString();
    if (isNumeric(type) || type == JetType::Boolean) {
        double d = 0;
        if (value.typeId() == QMetaType::Double || value.typeId() == QMetaType::LongLong ||
            value.typeId() == QMetaType::Int) {
            d = value.toDouble();
        } else {
            QString t = text.trimmed();
            t.remove(QLatin1Char(','));
            bool ok = false;
            if (type == JetType::Boolean && (t.compare(QLatin1String("True"), Qt::CaseInsensitive) == 0 ||
                                             t.compare(QLatin1String("False"), Qt::CaseInsensitive) == 0)) {
                d = t.compare(QLatin1String("True"), Qt::CaseInsensitive) == 0 ? -1 : 0;
                ok = true;
            } else {
                static const QRegularExpression num(QStringLiteral(R"(^[+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?$)"));
                ok = num.match(t).hasMatch();
                if (ok)
                    d = t.toDouble();
            }
            if (!ok)
                return mismatch(text);
        }
        const auto overflow = [&]() {
            if (error)
                *error = QStringLiteral("The value for '%1' is out of the range of its field.").arg(column);
            return false;
        };
        switch (type) {
        case JetType::Boolean:
            *out = d != 0 ? -1 : 0;
            return true;
        case JetType::Byte:
        case JetType::Integer:
        case JetType::Long: {
            const double r = std::nearbyint(d); // halves to even, as the engine rounds
            const double lo = type == JetType::Byte ? 0 : type == JetType::Integer ? -32768 : -2147483648.0;
            const double hi = type == JetType::Byte ? 255 : type == JetType::Integer ? 32767 : 2147483647.0;
            if (r < lo || r > hi)
                return overflow();
            *out = static_cast<qlonglong>(r);
            return true;
        }
        case JetType::Currency: {
            const double r = std::nearbyint(d * 10000.0) / 10000.0;
            if (r < -922337203685477.5808 || r > 922337203685477.5807)
                return overflow();
            if (r == std::trunc(r) && std::fabs(r) < 9e15)
                *out = static_cast<qlonglong>(r);
            else
                *out = r;
            return true;
        }
        case JetType::Single:
            *out = static_cast<double>(static_cast<float>(d));
            return true;
        default:
            *out = d;
            return true;
        }
    }
    if (type == JetType::DateTime) {
        const QDateTime dt = value.typeId() == QMetaType::QDateTime ? value.toDateTime() : parseDateTime(text);
        if (!dt.isValid())
            return mismatch(text);
        *out = dt.toString(QStringLiteral("yyyy/MM/dd HH:mm:ss"));
        return true;
    }
    if (type == JetType::Text && size > 0 && text.size() > size) {
        if (error)
            *error = QStringLiteral("The field '%1' is too small to accept the amount of data you attempted to add.")
                         .arg(column);
        return false;
    }
    *out = value.typeId() == QMetaType::QByteArray ? value : QVariant(text);
    return true;
}

} // namespace pel
