// The service's tables, made to be read by a person with the sqlite3 shell.
#pragma once

#include <string>

#include "db_Database.h"

namespace db {

// Creates whatever is missing; an existing database keeps its rows.
bool CreateSchema(Database& database, std::string* error);

// The registration columns of the clients table, in block order: every
// field of the start registration under its query key.
std::string ClientColumnList();

}  // namespace db
