#pragma once
// The program's schema as a new Jet 4 data1.dat (createdb --jet, demo --jet, the test homes on Jet).
#include <QString>
#include <cstdint>

namespace pel::batch {

// The suite's database password.
constexpr const char* kJetPassword = "VelQuarto";

// The schema as a new Jet data1.dat (path must not exist): primary keys become the index "PrimaryKey", CREATE
// INDEX ones keep their name; text columns in the given sort order.
bool createJetDatabase(const QString& path, std::uint16_t sortOrder, QString* error);

} // namespace pel::batch
