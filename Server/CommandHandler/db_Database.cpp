#include "db_Database.h"

#include <chrono>
#include <thread>

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

std::unique_ptr<Database> Database::OpenForReading(const std::string& path, std::string* error) {
  sqlite3* connection = nullptr;
  const int flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_FULLMUTEX;
  if (sqlite3_open_v2(path.c_str(), &connection, flags, nullptr) != SQLITE_OK) {
    *error = connection ? sqlite3_errmsg(connection) : "out of memory";
    sqlite3_close(connection);
    return nullptr;
  }
  sqlite3_busy_timeout(connection, kStatementBusyWaitMs);
  return std::unique_ptr<Database>(new Database(connection));
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
  // A statement outside a transaction (the schema, an operator's command,
  // a read) waits a little for another writer; a transaction's own wait
  // to begin is taken outside the lock (Transaction).
  sqlite3_busy_timeout(connection, kStatementBusyWaitMs);
  if (!database->Exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA foreign_keys=ON;")) {
    *error = path + ": " + database->LastError();
    return nullptr;
  }
  // A damaged file is refused at start, with what is wrong, rather than
  // failing command after command.
  std::string verdict;
  {
    Statement check = database->Prepare("PRAGMA quick_check(1)");
    verdict = check.Step() ? check.Text(0) : database->LastError();
  }
  if (verdict != "ok") {
    *error = "the database " + path + " is damaged (" + verdict +
             "); restore it from a copy or move it away to start with an empty one";
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

void Database::SetBusyWait(int ms) { sqlite3_busy_timeout(connection_, ms); }

bool Database::Busy() const {
  const int code = sqlite3_errcode(connection_);
  return code == SQLITE_BUSY || code == SQLITE_LOCKED;
}

int64_t Database::Changes() const { return sqlite3_changes64(connection_); }

std::unique_lock<std::mutex> Database::Lock() {
  std::unique_lock guard(lock_);
  if (group_) SettleGroup();
  return guard;
}

Database::GroupStats Database::Groups() const {
  return {sharedCommits_.load(std::memory_order_relaxed), sharedCommands_.load(std::memory_order_relaxed)};
}

void Database::WriteMetrics(metrics::Writer& w) const {
  w.Family("vgcr_cmdhandler_transaction_seconds", "histogram",
           "A command's transaction, from its wait for the database to the end of the commit that holds it.");
  transactionSeconds_.Write(w, "vgcr_cmdhandler_transaction_seconds", "");
  w.Family("vgcr_cmdhandler_commit_commands", "histogram", "Commands one database commit held (group commit).");
  commitSizes_.Write(w, "vgcr_cmdhandler_commit_commands", "");
}

bool Database::TransactionOpen() const { return sqlite3_get_autocommit(connection_) == 0; }

void Database::SettleGroup() {
  Group& group = *group_;
  // Some failures (a full disk, an I/O error) make SQLite roll back the
  // whole transaction, not only the savepoint that failed: then there is
  // nothing to commit, and the group has failed.
  group.committed = TransactionOpen() && Exec("COMMIT");
  if (!group.committed && TransactionOpen()) Exec("ROLLBACK");
  group.settled = true;
  if (group.members > 0) commitSizes_.Observe(static_cast<double>(group.members));
  if (group.members > 1) {
    sharedCommits_.fetch_add(1, std::memory_order_relaxed);
    sharedCommands_.fetch_add(static_cast<uint64_t>(group.members), std::memory_order_relaxed);
  }
  group_.reset();
  settled_.notify_all();
}

namespace {

// Counts a thread as queued while it waits for the database's lock: the
// group's last member is the one that finds nobody queued.
class Queued {
 public:
  explicit Queued(std::atomic<int>& queued) : queued_(queued) { queued_.fetch_add(1); }
  ~Queued() { queued_.fetch_sub(1); }
  Queued(const Queued&) = delete;
  Queued& operator=(const Queued&) = delete;

 private:
  std::atomic<int>& queued_;
};

std::unique_lock<std::mutex> TakeQueued(std::mutex& lock, std::atomic<int>& queued) {
  Queued counted(queued);
  return std::unique_lock(lock);
}

}  // namespace

Transaction::Transaction(Database& database)
    : database_(database), guard_(TakeQueued(database.lock_, database.queued_)) {
  // A group whose transaction SQLite has rolled back is over: its members
  // learn that it failed, and this command begins another.
  if (database_.group_ && !database_.TransactionOpen()) database_.SettleGroup();
  if (!database_.group_ && !BeginGroup()) return;
  begun_ = database_.Exec("SAVEPOINT command");
  if (!begun_) SettleIfLast();
}

// Another process writing (the sqlite3 shell, a backup) makes BEGIN
// IMMEDIATE busy. The wait for it is taken without the lock, so that the
// commands queued behind are not held too, and it is short: a command that
// cannot begin fails, and its requester is answered at once. Only BEGIN
// itself runs without SQLite's busy wait: whoever takes the lock meanwhile
// finds the usual one.
bool Transaction::BeginGroup() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kBusyWaitMs);
  auto group = std::make_shared<Database::Group>();  // made first: nothing can fail once BEGIN has run
  for (;;) {
    database_.SetBusyWait(0);
    const bool begun = database_.Exec("BEGIN IMMEDIATE");
    const bool busy = !begun && database_.Busy();
    database_.SetBusyWait(Database::kStatementBusyWaitMs);
    if (begun) {
      database_.group_ = std::move(group);
      return true;
    }
    if (!busy || std::chrono::steady_clock::now() >= deadline) return false;
    guard_.unlock();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    guard_.lock();
    if (database_.group_) return true;  // another command began one meanwhile: join it
  }
}

void Transaction::SettleIfLast() {
  if (!database_.group_) return;
  if (database_.queued_.load() == 0 || !database_.TransactionOpen()) database_.SettleGroup();
}

// Undoes this command's work alone; the group goes on (unless SQLite has
// rolled back all of it, which SettleIfLast sees).
void Transaction::Undo() {
  if (database_.TransactionOpen()) {
    database_.Exec("ROLLBACK TO command");
    database_.Exec("RELEASE command");
  }
  SettleIfLast();
}

Transaction::~Transaction() {
  if (begun_ && !done_) Undo();
}

bool Transaction::Commit() {
  if (!begun_ || done_) return false;
  done_ = true;
  if (!database_.TransactionOpen() || !database_.Exec("RELEASE command")) {
    Undo();
    return false;
  }
  std::shared_ptr<Database::Group> group = database_.group_;
  ++group->members;
  if (database_.queued_.load() == 0 || group->members >= Database::kMaxGroup) {
    database_.SettleGroup();
  } else {
    database_.settled_.wait(guard_, [&group] { return group->settled; });
  }
  database_.transactionSeconds_.Observe(
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count());
  return group->committed;
}

}  // namespace db
