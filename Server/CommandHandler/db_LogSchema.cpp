#include "db_LogSchema.h"

#include <strings.h>

namespace db {
namespace {

// The columns every log has before its keys.
constexpr const char* kCommonColumns =
    "  id INTEGER PRIMARY KEY,\n"
    "  received TEXT NOT NULL DEFAULT (strftime('%Y-%m-%d %H:%M:%f','now')),\n"
    "  uid TEXT NOT NULL COLLATE NOCASE,\n"
    "  release TEXT,\n"
    "  record_type INTEGER";

std::string TableSql(const logrec::Layout& layout) {
  std::string sql = std::string("CREATE TABLE IF NOT EXISTS ") + layout.table + " (\n" + kCommonColumns;
  for (const logrec::Key& key : layout.keys) {
    sql += ",\n  " + QuotedName(key.name) + (key.value == logrec::Value::kText ? " TEXT" : " INTEGER");
  }
  sql += "\n);\n";
  // This client's logs, and everything since a time.
  sql += std::string("CREATE INDEX IF NOT EXISTS ") + layout.table + "_uid_received ON " + layout.table +
         " (uid, received);\n";
  sql += std::string("CREATE INDEX IF NOT EXISTS ") + layout.table + "_received ON " + layout.table + " (received);\n";
  return sql;
}

// SQLite compares column names without regard to case, and so do we.
bool SameColumns(const std::vector<Column>& wanted, const std::vector<Column>& found) {
  if (wanted.size() != found.size()) return false;
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (strcasecmp(wanted[i].name.c_str(), found[i].name.c_str()) != 0 ||
        strcasecmp(wanted[i].type.c_str(), found[i].type.c_str()) != 0)
      return false;
  }
  return true;
}

int64_t RowCount(Database& database, const char* table) {
  Statement s = database.Prepare(std::string("SELECT COUNT(*) FROM ") + table);
  return s.Step() ? s.Int(0) : -1;
}

}  // namespace

std::string QuotedName(std::string_view name) { return "\"" + std::string(name) + "\""; }

std::vector<Column> LogColumns(const logrec::Layout& layout) {
  std::vector<Column> columns = {
      {"id", "INTEGER"}, {"received", "TEXT"}, {"uid", "TEXT"}, {"release", "TEXT"}, {"record_type", "INTEGER"}};
  for (const logrec::Key& key : layout.keys)
    columns.push_back({key.name, key.value == logrec::Value::kText ? "TEXT" : "INTEGER"});
  return columns;
}

std::string LogTablesSql() {
  std::string sql;
  for (const logrec::Layout* layout : logrec::kLayouts) sql += TableSql(*layout);
  return sql;
}

bool DropStaleLogTables(Database& database, std::string* error) {
  for (const logrec::Layout* layout : logrec::kLayouts) {
    const std::vector<Column> found = database.connection().TableColumns(layout->table);
    if (found.empty() || SameColumns(LogColumns(*layout), found)) continue;
    const int64_t rows = RowCount(database, layout->table);
    if (rows != 0) {
      *error = std::string("the log table ") + layout->table + " has columns of an older layout and holds " +
               std::to_string(rows) + " rows; move them elsewhere and drop the table (DROP TABLE " +
               layout->table + "), then start again";
      return false;
    }
    if (!database.Exec(std::string("DROP TABLE ") + layout->table)) {
      *error = std::string("cannot drop the empty table ") + layout->table + ": " + database.LastError();
      return false;
    }
  }
  return true;
}

std::string LogInsertSql(const logrec::Layout& layout) {
  std::string columns = "received, uid, release, record_type";
  std::string values = "?, ?, ?, ?";
  for (const logrec::Key& key : layout.keys) {
    columns += ", " + QuotedName(key.name);
    values += ", ?";
  }
  return std::string("INSERT INTO ") + layout.table + " (" + columns + ") VALUES (" + values + ")";
}

const logrec::Layout* FindLogTable(std::string_view table) {
  for (const logrec::Layout* layout : logrec::kLayouts) {
    if (table == layout->table) return layout;
  }
  return nullptr;
}

std::string LogTableNames() {
  std::string names;
  for (const logrec::Layout* layout : logrec::kLayouts) names += std::string(names.empty() ? "" : ", ") + layout->table;
  return names;
}

}  // namespace db
