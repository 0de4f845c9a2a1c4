// The service's tables, made to be read by a person with a database shell.
#pragma once

#include <string>

#include "db_Database.h"

namespace db {

// The schema version this build writes. A database at an older version is
// brought up to it at start; one at a newer version is refused.
inline constexpr int kSchemaVersion = 2;

// Creates whatever is missing; an existing database keeps its rows.
bool CreateSchema(Database& database, std::string* error);

// The schema's SQL (written in SQLite's words) for a backend: on
// PostgreSQL every INTEGER is 64 bits and an INTEGER PRIMARY KEY is an id
// the server numbers.
std::string ForBackend(const std::string& sql, Backend backend);

// The registration columns of the clients table, in block order: every
// field of the start registration under its query key.
std::string ClientColumnList();

}  // namespace db
