// The log tables, made from the log layouts both ends share: one table per
// layout, the columns every log has, then one column per key under the
// key's own name.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "channel/rec_Logs.h"
#include "db_Database.h"

namespace db {

// Every column of the layout's table, in table order.
std::vector<Column> LogColumns(const logrec::Layout& layout);

// The tables and their indexes, for whatever is missing.
std::string LogTablesSql();

// Drops an empty log table whose columns differ from its layout, so that it
// is made again; false with a message naming the table when such a table
// holds rows. Called inside the schema's transaction.
bool DropStaleLogTables(Database& database, std::string* error);

// INSERT of one row: received, uid, release, record_type, then the keys.
std::string LogInsertSql(const logrec::Layout& layout);

// The layout kept in `table`; null for a table that is no log table.
const logrec::Layout* FindLogTable(std::string_view table);
// "virus_log, url_filtering_log, ..."
std::string LogTableNames();

std::string QuotedName(std::string_view name);

}  // namespace db
