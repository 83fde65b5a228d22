#pragma once
// One row of a QTest data table in a single call: text literals become QString cells, every other value goes in as
// it is (pass a QByteArray or QStringList where the column holds one).
#include <QString>
#include <QTest>

#include <type_traits>
#include <utility>

namespace pel::test {

template <typename T> auto cell(T&& value)
{
    // only texts proper: a QByteArray also converts to const char*
    using D = std::decay_t<T>;
    if constexpr (std::is_same_v<D, const char*> || std::is_same_v<D, char*>)
        return QString::fromUtf8(value);
    else
        return std::decay_t<T>(std::forward<T>(value));
}

template <typename... Cells> void row(const char* name, Cells&&... cells)
{
    (QTest::newRow(name) << ... << cell(std::forward<Cells>(cells)));
}

} // namespace pel::test
