// The database as a SQLite file: one service, the file in its data folder.
#include <sqlite3.h>

#include <map>

#include "db_Connection.h"

namespace db {
namespace {

class SqliteCursor final : public Cursor {
 public:
  explicit SqliteCursor(sqlite3_stmt* statement) : statement_(statement) {}
  ~SqliteCursor() override { sqlite3_finalize(statement_); }
  void Reset() override {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }
  bool Bind(int index, int64_t value) override { return sqlite3_bind_int64(statement_, index, value) == SQLITE_OK; }
  bool Bind(int index, const std::string& text) override {
    return sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT) ==
           SQLITE_OK;
  }
  bool BindNull(int index) override { return sqlite3_bind_null(statement_, index) == SQLITE_OK; }
  int Step() override {
    const int rc = sqlite3_step(statement_);
    if (rc == SQLITE_ROW) return 1;
    return rc == SQLITE_DONE ? 0 : -1;
  }
  int64_t Int(int column) const override { return sqlite3_column_int64(statement_, column); }
  std::string Text(int column) const override {
    const auto* text = sqlite3_column_text(statement_, column);
    return text ? std::string(reinterpret_cast<const char*>(text),
                              static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                : std::string();
  }
  int Type(int column) const override { return sqlite3_column_type(statement_, column); }
  double Real(int column) const override { return sqlite3_column_double(statement_, column); }
  int Columns() const override { return sqlite3_column_count(statement_); }
  std::string ColumnName(int column) const override { return sqlite3_column_name(statement_, column); }

 private:
  sqlite3_stmt* statement_;
};

class SqliteConnection final : public Connection {
 public:
  explicit SqliteConnection(sqlite3* connection) : connection_(connection) {}
  ~SqliteConnection() override {
    cache_.clear();
    sqlite3_close(connection_);
  }
  Backend backend() const override { return Backend::kSqlite; }
  bool Exec(const std::string& sql) override {
    return sqlite3_exec(connection_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  Cursor* Prepare(const std::string& sql) override {
    auto found = cache_.find(sql);
    if (found == cache_.end()) {
      sqlite3_stmt* statement = nullptr;
      if (sqlite3_prepare_v3(connection_, sql.c_str(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                             &statement, nullptr) != SQLITE_OK)
        return nullptr;
      found = cache_.emplace(sql, std::make_unique<SqliteCursor>(statement)).first;
    }
    found->second->Reset();
    return found->second.get();
  }
  std::string LastError() const override { return sqlite3_errmsg(connection_); }
  bool Busy() const override {
    const int code = sqlite3_errcode(connection_);
    return code == SQLITE_BUSY || code == SQLITE_LOCKED;
  }
  void SetBusyWait(int ms) override { sqlite3_busy_timeout(connection_, ms); }
  int64_t Changes() const override { return sqlite3_changes64(connection_); }
  bool TransactionOpen() const override { return sqlite3_get_autocommit(connection_) == 0; }
  bool TransactionFailed() const override { return false; }
  // IMMEDIATE: the write lock is taken at once, so that a transaction never
  // fails half-way because another process began writing meanwhile.
  bool Begin(const std::string& then) override { return Exec("BEGIN IMMEDIATE;" + then); }
  bool Commit(const std::string& before) override { return Exec(before + ";COMMIT"); }
  bool Lost() const override { return false; }
  bool Reconnect() override { return true; }
  std::vector<std::string> Tables() override {
    std::vector<std::string> tables;
    Cursor* list = Prepare("SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%' "
                           "ORDER BY name");
    while (list && list->Step() == 1) tables.push_back(list->Text(0));
    if (list) list->Reset();
    return tables;
  }
  std::vector<Column> TableColumns(const std::string& table) override {
    std::vector<Column> columns;
    Cursor* s = Prepare("SELECT name, type FROM pragma_table_info(?)");
    if (!s || !s->Bind(1, table)) return columns;
    while (s->Step() == 1) columns.push_back({s->Text(0), s->Text(1)});
    s->Reset();
    return columns;
  }
  // One writer at a time holds the whole file: nothing more to take.
  bool LockForTransaction(const std::string&) override { return true; }
  bool TryLock(const std::string&) override { return true; }
  void Unlock(const std::string&) override {}

 private:
  sqlite3* connection_;
  std::map<std::string, std::unique_ptr<SqliteCursor>> cache_;
};

}  // namespace

std::unique_ptr<Connection> OpenSqlite(const std::string& path, bool readOnly, std::string* error) {
  sqlite3* connection = nullptr;
  const int flags = (readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) |
                    SQLITE_OPEN_FULLMUTEX;
  if (sqlite3_open_v2(path.c_str(), &connection, flags, nullptr) != SQLITE_OK) {
    *error = connection ? sqlite3_errmsg(connection) : "out of memory";
    sqlite3_close(connection);
    return nullptr;
  }
  return std::make_unique<SqliteConnection>(connection);
}

}  // namespace db
