#include "db_Database.h"

#include <chrono>
#include <thread>

namespace db {

Statement& Statement::Bind(int index, int64_t value) {
  if (!failed_ && !cursor_->Bind(index, value)) failed_ = true;
  return *this;
}

Statement& Statement::Bind(int index, const std::string& text) {
  if (!failed_ && !cursor_->Bind(index, text)) failed_ = true;
  return *this;
}

Statement& Statement::BindNull(int index) {
  if (!failed_ && !cursor_->BindNull(index)) failed_ = true;
  return *this;
}

bool Statement::Step() {
  if (failed_) return false;
  const int rc = cursor_->Step();
  if (rc == 1) return true;
  if (rc < 0) failed_ = true;
  return false;
}

bool Statement::Run() {
  Step();
  return !failed_;
}

Database::~Database() = default;

std::unique_ptr<Database> Database::OpenForReading(const std::string& location, std::string* error,
                                                   const std::string& password) {
  std::unique_ptr<Connection> connection =
      IsPostgresLocation(location) ? ConnectPostgres(location, password, error) : OpenSqlite(location, true, error);
  if (!connection) return nullptr;
  connection->SetBusyWait(kStatementBusyWaitMs);
  if (connection->backend() == Backend::kPostgres) connection->Exec("SET default_transaction_read_only = on");
  return std::unique_ptr<Database>(new Database(std::move(connection)));
}

std::unique_ptr<Database> Database::Open(const std::string& location, std::string* error, const std::string& password) {
  if (IsPostgresLocation(location)) {
    std::unique_ptr<Connection> connection = ConnectPostgres(location, password, error);
    if (!connection) return nullptr;
    return std::unique_ptr<Database>(new Database(std::move(connection)));
  }
  std::unique_ptr<Connection> connection = OpenSqlite(location, false, error);
  if (!connection) return nullptr;
  std::unique_ptr<Database> database(new Database(std::move(connection)));
  // A statement outside a transaction (the schema, an operator's command,
  // a read) waits a little for another writer; a transaction's own wait
  // to begin is taken outside the lock (Transaction).
  database->SetBusyWait(kStatementBusyWaitMs);
  if (!database->Exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA foreign_keys=ON;")) {
    *error = location + ": " + database->LastError();
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
    *error = "the database " + location + " is damaged (" + verdict +
             "); restore it from a copy or move it away to start with an empty one";
    return nullptr;
  }
  return database;
}

bool Database::Exec(const std::string& sql) { return connection_->Exec(sql); }

Statement Database::Prepare(const std::string& sql) { return Statement(connection_->Prepare(sql)); }

std::string Database::LastError() const { return connection_->LastError(); }

void Database::SetBusyWait(int ms) { connection_->SetBusyWait(ms); }

bool Database::Busy() const { return connection_->Busy(); }

int64_t Database::Changes() const { return connection_->Changes(); }

bool Database::Revive() {
  if (!connection_->Lost()) return true;
  const auto now = std::chrono::steady_clock::now();
  if (now - lastReconnect_ < std::chrono::milliseconds(kReconnectGapMs)) return false;
  lastReconnect_ = now;
  return connection_->Reconnect();
}

std::unique_lock<std::mutex> Database::Lock() {
  std::unique_lock guard(lock_);
  if (group_) SettleGroup();
  Revive();
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

void Database::SettleGroup() {
  Group& group = *group_;
  // Some failures (a full disk, an I/O error, a lost server) end the whole
  // transaction, not only the savepoint that failed: then there is
  // nothing to commit, and the group has failed.
  group.committed = TransactionOpen() && connection_->Commit();
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
  // A group whose transaction the database has rolled back is over: its
  // members learn that it failed, and this command begins another.
  if (database_.group_ && !database_.TransactionOpen()) database_.SettleGroup();
  if (!database_.group_ && (!database_.Revive() || !BeginGroup())) return;
  begun_ = database_.Exec("SAVEPOINT command");
  if (!begun_) SettleIfLast();
}

// Another process writing (the sqlite3 shell, a backup) makes SQLite's
// BEGIN IMMEDIATE busy. The wait for it is taken without the lock, so that the
// commands queued behind are not held too, and it is short: a command that
// cannot begin fails, and its requester is answered at once. Only BEGIN
// itself runs without SQLite's busy wait: whoever takes the lock meanwhile
// finds the usual one.
bool Transaction::BeginGroup() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kBusyWaitMs);
  auto group = std::make_shared<Database::Group>();  // made first: nothing can fail once BEGIN has run
  for (;;) {
    database_.SetBusyWait(0);
    const bool begun = database_.connection_->Begin();
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
