#include "db_Database.h"

namespace db {

Statement& Statement::Bind(int index, int64_t value) {
  if (failed_) return *this;
  if (sqlite3_bind_int64(statement_, index, value) != SQLITE_OK) failed_ = true;
  return *this;
}

Statement& Statement::Bind(int index, const std::string& text) {
  if (failed_) return *this;
  if (sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT) != SQLITE_OK)
    failed_ = true;
  return *this;
}

Statement& Statement::BindNull(int index) {
  if (failed_) return *this;
  if (sqlite3_bind_null(statement_, index) != SQLITE_OK) failed_ = true;
  return *this;
}

bool Statement::Step() {
  if (failed_) return false;
  const int rc = sqlite3_step(statement_);
  if (rc == SQLITE_ROW) return true;
  if (rc != SQLITE_DONE) failed_ = true;
  return false;
}

bool Statement::Run() {
  Step();
  return !failed_;
}

int64_t Statement::Int(int column) const { return sqlite3_column_int64(statement_, column); }

std::string Statement::Text(int column) const {
  const auto* text = sqlite3_column_text(statement_, column);
  return text ? std::string(reinterpret_cast<const char*>(text),
                            static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
              : std::string();
}

bool Statement::IsNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }

int Statement::Type(int column) const { return sqlite3_column_type(statement_, column); }

double Statement::Real(int column) const { return sqlite3_column_double(statement_, column); }

int Statement::Columns() const { return sqlite3_column_count(statement_); }

std::string Statement::ColumnName(int column) const { return sqlite3_column_name(statement_, column); }

Database::~Database() {
  for (auto& [sql, statement] : cache_) sqlite3_finalize(statement);
  sqlite3_close(connection_);
}

std::unique_ptr<Database> Database::Open(const std::string& path, std::string* error) {
  sqlite3* connection = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
  if (sqlite3_open_v2(path.c_str(), &connection, flags, nullptr) != SQLITE_OK) {
    *error = connection ? sqlite3_errmsg(connection) : "out of memory";
    sqlite3_close(connection);
    return nullptr;
  }
  std::unique_ptr<Database> database(new Database(connection));
  sqlite3_busy_timeout(connection, 5000);
  if (!database->Exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA foreign_keys=ON;")) {
    *error = database->LastError();
    return nullptr;
  }
  return database;
}

bool Database::Exec(const std::string& sql) {
  return sqlite3_exec(connection_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

Statement Database::Prepare(const std::string& sql) {
  auto found = cache_.find(sql);
  if (found == cache_.end()) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v3(connection_, sql.c_str(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                           &statement, nullptr) != SQLITE_OK)
      return Statement(nullptr);
    found = cache_.emplace(sql, statement).first;
  }
  sqlite3_reset(found->second);
  sqlite3_clear_bindings(found->second);
  return Statement(found->second);
}

std::string Database::LastError() const { return sqlite3_errmsg(connection_); }

int64_t Database::Changes() const { return sqlite3_changes64(connection_); }

Transaction::Transaction(Database& database) : database_(database), guard_(database.Lock()) {
  begun_ = database_.Exec("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
  if (begun_ && !done_) database_.Exec("ROLLBACK");
}

bool Transaction::Commit() {
  if (!begun_ || done_) return false;
  done_ = database_.Exec("COMMIT");
  return done_;
}

}  // namespace db
