#pragma once
// A client-side static result, materialised: exact record count, free movement; editable when opened for edit.
#include "app/db/types.h"

#include <QString>
#include <QStringList>
#include <QVariant>
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
    void reset(const QString& source, std::vector<FieldInfo> fields, std::vector<std::vector<QVariant>> rows);
    struct EditState;
    void makeEditable(std::unique_ptr<EditState> edit);

private:
    bool fail(const QString& message, QString* error);

    bool open_ = false;
    QString source_;
    std::vector<FieldInfo> fields_;
    std::vector<std::vector<QVariant>> rows_;
    qsizetype pos_ = 0;
    std::unique_ptr<EditState> edit_;
    QString lastError_;
};

} // namespace pel
