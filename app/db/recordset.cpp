#include "app/db/recordset.h"

#include "app/db/connection.h"
#include "app/db/editstate.h"
#include "app/db/schema.h"

#include <QSqlQuery>

#include <algorithm>
#include <cstring>

namespace pel {

ResultRows::Cell& ResultRows::push(Cell::Kind kind, quint32 size)
{
    if (count_ == blockStart(cells_.size()))
        cells_.push_back(std::make_unique_for_overwrite<Cell[]>(kFirstBlock << cells_.size()));
    Cell& c = cell(count_++);
    c.kind = kind;
    c.size = size;
    c.i = 0;
    return c;
}

void ResultRows::addNull()
{
    push(Cell::Null);
}

void ResultRows::addInt(qint64 v)
{
    push(Cell::Int).i = v;
}

void ResultRows::addDouble(double v)
{
    push(Cell::Double).d = v;
}

void ResultRows::addUtf8(const char* text, qsizetype size)
{
    const auto n = static_cast<size_t>(size);
    if (text_.empty() || text_.back().used + n > text_.back().capacity) {
        constexpr size_t kFirst = 1024, kLargest = 1 << 20;
        const size_t capacity = std::max(n, text_.empty() ? kFirst : std::min(text_.back().capacity * 2, kLargest));
        text_.push_back({std::make_unique_for_overwrite<char[]>(capacity), 0, capacity});
    }
    TextBlock& block = text_.back();
    push(Cell::Utf8, static_cast<quint32>(size)).at =
        (static_cast<quint64>(text_.size() - 1) << 32) | static_cast<quint64>(block.used);
    if (n > 0)
        std::memcpy(block.data.get() + block.used, text, n);
    block.used += n;
}

void ResultRows::addVariant(const QVariant& v)
{
    push(Cell::Variant).at = variants_.size();
    variants_.push_back(v);
}

QVariant ResultRows::value(size_t row, int column) const
{
    const Cell& c = cell(row * static_cast<size_t>(columns_) + static_cast<size_t>(column));
    switch (c.kind) {
    case Cell::Null:
        return QVariant(QMetaType::fromType<QString>()); // a null as the SQLite driver gives it
    case Cell::Int:
        return QVariant(static_cast<qlonglong>(c.i));
    case Cell::Double:
        return QVariant(c.d);
    case Cell::Utf8:
        return QString::fromUtf8(text_[c.at >> 32].data.get() + (c.at & 0xFFFFFFFFu), c.size);
    case Cell::Variant:
        break;
    }
    return variants_[c.at];
}

bool ResultRows::text(size_t row, int column, QString* out) const
{
    const Cell& c = cell(row * static_cast<size_t>(columns_) + static_cast<size_t>(column));
    if (c.kind != Cell::Utf8)
        return false;
    *out = QString::fromUtf8(text_[c.at >> 32].data.get() + (c.at & 0xFFFFFFFFu), c.size);
    return true;
}

std::vector<QVariant> ResultRows::row(size_t row) const
{
    std::vector<QVariant> out(static_cast<size_t>(columns_));
    for (int i = 0; i < columns_; ++i)
        out[static_cast<size_t>(i)] = value(row, i);
    return out;
}

void ResultRows::setRow(size_t row, const std::vector<QVariant>& values)
{
    for (int i = 0; i < columns_; ++i) {
        Cell& c = cell(row * static_cast<size_t>(columns_) + static_cast<size_t>(i));
        c.kind = Cell::Variant;
        c.size = 0;
        c.at = variants_.size();
        variants_.push_back(static_cast<size_t>(i) < values.size() ? values[static_cast<size_t>(i)] : QVariant());
    }
}

void ResultRows::appendRow(const std::vector<QVariant>& values)
{
    for (int i = 0; i < columns_; ++i)
        addVariant(static_cast<size_t>(i) < values.size() ? values[static_cast<size_t>(i)] : QVariant());
    endRow();
}

Recordset::Recordset() = default;

Recordset::~Recordset()
{
    close();
}

void Recordset::close()
{
    if (edit_ && edit_->conn)
        edit_->conn->releaseEdit(edit_.get());
    edit_.reset();
    open_ = false;
    fields_.clear();
    rows_ = ResultRows();
    pos_ = 0;
    lastError_.clear();
}

void Recordset::reset(const QString& source, std::vector<FieldInfo> fields, ResultRows rows)
{
    close();
    source_ = source;
    fields_ = std::move(fields);
    rows_ = std::move(rows);
    pos_ = 0;
    open_ = true;
}

void Recordset::makeEditable(std::unique_ptr<EditState> edit)
{
    edit_ = std::move(edit);
}

bool Recordset::eof() const
{
    if (edit_ && edit_->adding)
        return false;
    return !open_ || pos_ >= static_cast<qsizetype>(rows_.size());
}

bool Recordset::bof() const
{
    return !open_ || pos_ < 0 || rows_.empty();
}

long Recordset::recordCount() const
{
    return open_ ? static_cast<long>(rows_.size()) : -1;
}

void Recordset::moveFirst()
{
    pos_ = 0;
}

void Recordset::moveNext()
{
    if (pos_ < static_cast<qsizetype>(rows_.size()))
        ++pos_;
}

void Recordset::movePrevious()
{
    if (pos_ >= 0)
        --pos_;
}

void Recordset::moveLast()
{
    pos_ = rows_.empty() ? 0 : static_cast<qsizetype>(rows_.size()) - 1;
}

int Recordset::fieldIndex(const QString& name) const
{
    for (size_t i = 0; i < fields_.size(); ++i)
        if (fields_[i].name.compare(name, Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    return -1;
}

QStringList Recordset::fieldNames() const
{
    QStringList names;
    for (const FieldInfo& f : fields_)
        names << f.name;
    return names;
}

QVariant Recordset::value(int i) const
{
    if (i < 0 || i >= fieldCount())
        return QVariant();
    if (edit_ && (edit_->adding || edit_->buffered))
        return edit_->buffer[static_cast<size_t>(i)];
    if (pos_ < 0 || pos_ >= static_cast<qsizetype>(rows_.size()))
        return QVariant();
    if (i >= rows_.columns())
        return QVariant();
    return rows_.value(static_cast<size_t>(pos_), i);
}

QVariant Recordset::value(const QString& name) const
{
    return value(fieldIndex(name));
}

QString Recordset::text(int i) const
{
    const JetType type = i >= 0 && i < fieldCount() ? fields_[static_cast<size_t>(i)].type : JetType::Unknown;
    // a text field's text as stored is its standard conversion: no value to make on the way
    const bool plain = !isNumeric(type) && type != JetType::Boolean && type != JetType::DateTime;
    QString t;
    if (plain && i >= 0 && i < fieldCount() && i < rows_.columns() && !(edit_ && (edit_->adding || edit_->buffered)) &&
        pos_ >= 0 && pos_ < static_cast<qsizetype>(rows_.size()) && rows_.text(static_cast<size_t>(pos_), i, &t))
        return t;
    return valueToText(value(i), type);
}

bool Recordset::isNewRow() const
{
    return edit_ && edit_->adding;
}

bool Recordset::addNew(QString* error)
{
    if (!edit_)
        return fail(QStringLiteral("Current Recordset does not support updating."), error);
    edit_->adding = true;
    edit_->buffered = true;
    edit_->buffer.assign(fields_.size(), QVariant());
    edit_->dirty.assign(fields_.size(), false);
    edit_->pendingError.clear();
    return true;
}

bool Recordset::fail(const QString& message, QString* error)
{
    lastError_ = message;
    if (error)
        *error = message;
    return false;
}

bool Recordset::setValue(const QString& name, const QVariant& v, QString* error)
{
    // a value the engine refuses makes the following Update fail, as the suite's recordsets do
    const auto fail = [&](const QString& e) {
        if (edit_)
            edit_->pendingError = e;
        return this->fail(e, error);
    };
    if (!open_)
        return fail(QStringLiteral("Operation is not allowed when the object is closed."));
    if (!edit_)
        return fail(QStringLiteral("Current Recordset does not support updating."));
    const int i = fieldIndex(name);
    if (i < 0)
        return fail(QStringLiteral("Item cannot be found in the collection corresponding to the requested name (%1).")
                        .arg(name));
    if (!edit_->adding && (eof() || pos_ < 0))
        return fail(QStringLiteral("Either BOF or EOF is True, or the current record has been deleted. Requested "
                                   "operation requires a current record."));
    if (!edit_->buffered) {
        edit_->buffer = rows_.row(static_cast<size_t>(pos_));
        edit_->dirty.assign(fields_.size(), false);
        edit_->buffered = true;
    }
    const FieldInfo& f = fields_[static_cast<size_t>(i)];
    QVariant stored;
    QString why;
    if (!convertForColumn(v, f.type, f.size, f.name, &stored, &why))
        return fail(why);
    edit_->buffer[static_cast<size_t>(i)] = stored;
    edit_->dirty[static_cast<size_t>(i)] = true;
    return true;
}

bool Recordset::update(QString* error)
{
    const auto fail = [&](const QString& e) { return this->fail(e, error); };
    if (!open_)
        return fail(QStringLiteral("Operation is not allowed when the object is closed."));
    if (!edit_)
        return fail(QStringLiteral("Current Recordset does not support updating."));
    if (!edit_->pendingError.isEmpty())
        return fail(edit_->pendingError);
    if (!edit_->lockConflict.isEmpty())
        return fail(edit_->lockConflict);
    if (!edit_->buffered)
        return true;
    if (!edit_->adding && (pos_ < 0 || pos_ >= static_cast<qsizetype>(rows_.size())))
        return fail(QStringLiteral("Either BOF or EOF is True, or the current record has been deleted. Requested "
                                   "operation requires a current record."));
    Connection& c = *edit_->conn;
    const Dialect& d = c.dialect();
    QStringList cols;
    QVariantList values;
    for (size_t i = 0; i < fields_.size(); ++i)
        if (edit_->dirty[i]) {
            cols << d.quote(fields_[i].column.isEmpty() ? fields_[i].name : fields_[i].column);
            values << edit_->buffer[i];
        }
    QString sql;
    const std::vector<QVariant>* key = nullptr;
    if (edit_->adding) {
        QStringList marks;
        for (qsizetype i = 0; i < cols.size(); ++i)
            marks << QStringLiteral("?");
        sql = cols.isEmpty()
                  ? QStringLiteral("INSERT INTO %1 DEFAULT VALUES").arg(d.quote(edit_->table))
                  : QStringLiteral("INSERT INTO %1 (%2) VALUES (%3)")
                        .arg(d.quote(edit_->table), cols.join(QLatin1Char(',')), marks.join(QLatin1Char(',')));
    } else {
        if (cols.isEmpty())
            return true;
        // found again by its key as read (or as last written), never by where the engine keeps it
        key = &edit_->keys[static_cast<size_t>(pos_)];
        if (edit_->key.isEmpty() || key->size() != static_cast<size_t>(edit_->key.size()))
            return fail(QStringLiteral("Operation must use an updateable query."));
        QStringList sets, where;
        for (const QString& col : std::as_const(cols))
            sets << col + QStringLiteral(" = ?");
        for (const QString& k : std::as_const(edit_->key))
            where << d.quote(k) + QStringLiteral(" = ?");
        sql = QStringLiteral("UPDATE %1 SET %2 WHERE %3")
                  .arg(d.quote(edit_->table), sets.join(QLatin1Char(',')), where.join(QLatin1String(" AND ")));
        for (const QVariant& v : *key)
            values << v;
    }
    QString why;
    if (!c.lockAgain(edit_.get(), key, &why) || !c.writeEdit(edit_.get(), sql, values, !edit_->adding, &why))
        return fail(why);
    // the row's key from now on: the values just written, the column's default for a key column left out
    std::vector<QVariant> written;
    for (const QString& k : std::as_const(edit_->key)) {
        const int i = fieldIndex(k);
        if (i >= 0 && (edit_->dirty[static_cast<size_t>(i)] || !edit_->adding))
            written.push_back(edit_->buffer[static_cast<size_t>(i)]);
        else
            written.push_back(defaultKeyValue(edit_->table, k));
    }
    if (edit_->adding) {
        rows_.appendRow(edit_->buffer);
        edit_->keys.push_back(written);
        pos_ = static_cast<qsizetype>(rows_.size()) - 1;
        edit_->adding = false;
    } else {
        rows_.setRow(static_cast<size_t>(pos_), edit_->buffer);
        edit_->keys[static_cast<size_t>(pos_)] = written;
    }
    edit_->buffered = false;
    return true;
}

} // namespace pel
