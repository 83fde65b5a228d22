#pragma once
// A run-time error of the program (subscript out of range, overflow): it ends the action that raised it, or the
// program where nothing handles it.
#include <QString>
#include <stdexcept>

namespace pel {

class RuntimeError : public std::runtime_error {
public:
    RuntimeError(int number, const QString& description)
        : std::runtime_error(description.toStdString()), number_(number), description_(description)
    {
    }
    int number() const { return number_; }
    const QString& description() const { return description_; }

    static RuntimeError subscriptOutOfRange() { return {9, QStringLiteral("インデックスが有効範囲にありません。")}; }
    static RuntimeError overflow() { return {6, QStringLiteral("オーバーフローしました。")}; }

private:
    int number_;
    QString description_;
};

// Description of the last run-time error that an action caught (shown by the catalogue's load-error message).
QString lastErrorDescription();
void setLastErrorDescription(const QString& description);

} // namespace pel
