#pragma once
// A client-side static result, materialised: exact record count, free movement; editable when opened for edit.
#include "app/db/types.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <bit>
#include <memory>
#include <vector>

namespace pel {

class Connection;

struct FieldInfo {
    QString name;   // as the system reads it: "denno", "m.tel", "Expr1000"
    QString table;  // source table (empty for expressions)
    QString column; // source column
    JetType type = JetType::Unknown;
    int size = 0;
};

// The rows of a result, one cell per field: numbers as numbers and texts as the UTF-8 the engine holds them in,
// made into a QString only when a field is read (a large result is mostly never read whole); other values as
// the driver gave them.
class ResultRows {
public:
    explicit ResultRows(int columns = 0) : columns_(columns) {}
    int columns() const { return columns_; }
    size_t size() const { return rows_; }
    bool empty() const { return rows_ == 0; }

    // Filling, one row after the other: the columns' cells, then endRow.
    void addNull();
    void addInt(qint64 v);
    void addDouble(double v);
    void addUtf8(const char* text, qsizetype size); // well-formed UTF-8
    void addVariant(const QVariant& v);
    void endRow() { ++rows_; }

    QVariant value(size_t row, int column) const;
    // The text of a cell that holds text as the engine gave it; false for any other cell.
    bool text(size_t row, int column, QString* out) const;
    std::vector<QVariant> row(size_t row) const;
    void setRow(size_t row, const std::vector<QVariant>& values);
    void appendRow(const std::vector<QVariant>& values);

private:
    struct Cell {
        enum Kind : quint8 { Null, Int, Double, Utf8, Variant } kind;
        quint32 size;
        union {
            qint64 i;
            double d;
            quint64 at; // Utf8: block << 32 | offset in text_; Variant: index in variants_
        };
    };
    // Cells and texts are kept in blocks that never move, each block twice the size of the one before: a large
    // result is never copied over as it grows, a small one takes little.
    static constexpr size_t kFirstBlock = 64; // cells; block b holds kFirstBlock << b
    static size_t blockOf(size_t index) { return static_cast<size_t>(std::bit_width(index / kFirstBlock + 1)) - 1; }
    static size_t blockStart(size_t block) { return kFirstBlock * ((size_t{1} << block) - 1); }
    Cell& push(Cell::Kind kind, quint32 size = 0);
    const Cell& cell(size_t index) const
    {
        const size_t b = blockOf(index);
        return cells_[b][index - blockStart(b)];
    }
    Cell& cell(size_t index)
    {
        const size_t b = blockOf(index);
        return cells_[b][index - blockStart(b)];
    }

    int columns_ = 0;
    size_t rows_ = 0;
    size_t count_ = 0; // cells
    std::vector<std::unique_ptr<Cell[]>> cells_;
    struct TextBlock {
        std::unique_ptr<char[]> data;
        size_t used = 0, capacity = 0;
    };
    std::vector<TextBlock> text_;
    std::vector<QVariant> variants_;
};

class Recordset {
public:
    Recordset();
    ~Recordset();
    Recordset(const Recordset&) = delete;
    Recordset& operator=(const Recordset&) = delete;

    bool isOpen() const { return open_; }
    int state() const { return open_ ? 1 : 0; }
    void close();

    bool eof() const;
    bool bof() const;
    long recordCount() const;
    void moveFirst();
    void moveNext();
    void movePrevious();
    void moveLast();
    qsizetype position() const { return pos_; }

    int fieldCount() const { return static_cast<int>(fields_.size()); }
    const FieldInfo& field(int i) const { return fields_[static_cast<size_t>(i)]; }
    int fieldIndex(const QString& name) const; // case-insensitive; -1 when absent
    QStringList fieldNames() const;
    // Value of the current row; an invalid QVariant when there is none.
    QVariant value(int i) const;
    QVariant value(const QString& name) const;
    // The standard conversion of the current row's field to text.
    QString text(int i) const;

    // The statement as the system built it.
    const QString& source() const { return source_; }

    // Editing (recordsets of DbSqlEdit / fnOpenRs with edit): the current row or a new one is changed and Update
    // writes it back. A value that does not convert makes Update fail with the conversion error.
    bool isEditable() const { return static_cast<bool>(edit_); }
    bool setValue(const QString& name, const QVariant& value, QString* error = nullptr);
    bool addNew(QString* error = nullptr);
    bool update(QString* error = nullptr);
    bool isNewRow() const;
    const QString& lastError() const { return lastError_; }

    // Filled by the database layer.
    void reset(const QString& source, std::vector<FieldInfo> fields, ResultRows rows);
    struct EditState;
    void makeEditable(std::unique_ptr<EditState> edit);

private:
    bool fail(const QString& message, QString* error);

    bool open_ = false;
    QString source_;
    std::vector<FieldInfo> fields_;
    ResultRows rows_;
    qsizetype pos_ = 0;
    std::unique_ptr<EditState> edit_;
    QString lastError_;
};

} // namespace pel
