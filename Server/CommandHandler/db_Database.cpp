#include "db_Database.h"

#include <algorithm>
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

namespace {

// The lane a thread holds, and whose (a service has more than one Database:
// its metrics read through a connection of their own).
thread_local const void* t_database = nullptr;
thread_local void* t_lane = nullptr;

}  // namespace

Database::Database(std::vector<std::unique_ptr<Connection>> connections) : backend_(connections[0]->backend()) {
  for (auto& connection : connections) lanes_.push_back(std::make_unique<Lane>(std::move(connection)));
}

Database::~Database() {
  if (t_database == this) {
    t_database = nullptr;
    t_lane = nullptr;
  }
}

Database::Lane& Database::Current() const {
  return t_database == this ? *static_cast<Lane*>(t_lane) : *lanes_[0];
}

Database::Lane& Database::LeastBusy() const {
  Lane* least = lanes_[0].get();
  for (const auto& lane : lanes_) {
    if (lane->users.load(std::memory_order_relaxed) < least->users.load(std::memory_order_relaxed)) least = lane.get();
  }
  return *least;
}

Database::Lane& Database::LaneFor(std::string_view client) const {
  if (lanes_.size() == 1 || client.empty()) return LeastBusy();
  // Uids are compared without regard to case.
  std::size_t hash = 14695981039346656037u;
  for (const char c : client) {
    hash = (hash ^ static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c)) * 1099511628211u;
  }
  return *lanes_[hash % lanes_.size()];
}

void Database::Hold(Lane& lane) const {
  t_database = this;
  t_lane = &lane;
}

std::unique_ptr<Database> Database::OpenForReading(const std::string& location, std::string* error,
                                                   const std::string& password) {
  std::unique_ptr<Connection> connection =
      IsPostgresLocation(location) ? ConnectPostgres(location, password, error) : OpenSqlite(location, true, error);
  if (!connection) return nullptr;
  connection->SetBusyWait(kStatementBusyWaitMs);
  if (connection->backend() == Backend::kPostgres) connection->Exec("SET default_transaction_read_only = on");
  std::vector<std::unique_ptr<Connection>> one;
  one.push_back(std::move(connection));
  return std::unique_ptr<Database>(new Database(std::move(one)));
}

std::unique_ptr<Database> Database::Open(const std::string& location, std::string* error, const std::string& password,
                                         int connections) {
  std::vector<std::unique_ptr<Connection>> lanes;
  if (IsPostgresLocation(location)) {
    for (int i = 0; i < std::max(1, connections); ++i) {
      std::unique_ptr<Connection> connection = ConnectPostgres(location, password, error);
      if (!connection) return nullptr;
      lanes.push_back(std::move(connection));
    }
    return std::unique_ptr<Database>(new Database(std::move(lanes)));
  }
  std::unique_ptr<Connection> connection = OpenSqlite(location, false, error);
  if (!connection) return nullptr;
  lanes.push_back(std::move(connection));
  std::unique_ptr<Database> database(new Database(std::move(lanes)));
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

bool Database::Exec(const std::string& sql) { return Current().connection->Exec(sql); }

Statement Database::Prepare(const std::string& sql) { return Statement(Current().connection->Prepare(sql)); }

std::string Database::LastError() const { return Current().connection->LastError(); }

void Database::SetBusyWait(int ms) { Current().connection->SetBusyWait(ms); }

bool Database::Busy() const { return Current().connection->Busy(); }

int64_t Database::Changes() const { return Current().connection->Changes(); }

bool Database::Revive(Lane& lane) {
  if (!lane.connection->Lost()) return true;
  const auto now = std::chrono::steady_clock::now();
  if (now - lane.lastReconnect < std::chrono::milliseconds(kReconnectGapMs)) return false;
  lane.lastReconnect = now;
  return lane.connection->Reconnect();
}

std::unique_lock<std::mutex> Database::Lock(std::string_view client) {
  Lane& lane = LaneFor(client);
  std::unique_lock guard(lane.lock);
  Hold(lane);
  if (lane.group) SettleGroup(lane);
  Revive(lane);
  return guard;
}

// Session locks live on the first lane, so that the one that took a lock
// is the one that gives it back.
bool Database::TryLockShared(const std::string& key) {
  Lane& lane = *lanes_[0];
  std::lock_guard guard(lane.lock);
  if (lane.group) SettleGroup(lane);
  return Revive(lane) && lane.connection->TryLock(key);
}

void Database::UnlockShared(const std::string& key) {
  Lane& lane = *lanes_[0];
  std::lock_guard guard(lane.lock);
  if (lane.group) SettleGroup(lane);
  lane.connection->Unlock(key);
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

void Database::SettleGroup(Lane& lane, const std::string& before) {
  Group& group = *lane.group;
  // Some failures (a full disk, an I/O error, a lost server) end the whole
  // transaction, not only the savepoint that failed: then there is
  // nothing to commit, and the group has failed.
  Connection& connection = *lane.connection;
  group.committed = connection.TransactionOpen() && connection.Commit(before);
  if (!group.committed && connection.TransactionOpen()) connection.Exec("ROLLBACK");
  group.settled = true;
  if (group.members > 0) commitSizes_.Observe(static_cast<double>(group.members));
  if (group.members > 1) {
    sharedCommits_.fetch_add(1, std::memory_order_relaxed);
    sharedCommands_.fetch_add(static_cast<uint64_t>(group.members), std::memory_order_relaxed);
  }
  lane.group.reset();
  lane.settled.notify_all();
}

namespace {

// Counts a thread as queued while it waits for the lane's lock: the
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

Transaction::Transaction(Database& database, std::string_view client)
    : database_(database), lane_(database.LaneFor(client)), guard_((lane_.users.fetch_add(1), TakeQueued(lane_.lock, lane_.queued))) {
  database_.Hold(lane_);
  // A group whose transaction the database has rolled back is over: its
  // members learn that it failed, and this command begins another.
  if (lane_.group && !lane_.connection->TransactionOpen()) database_.SettleGroup(lane_);
  // A command that begins the group opens its savepoint with BEGIN, in
  // the same exchange with a server.
  begun_ = lane_.group ? lane_.connection->Exec("SAVEPOINT command") : Database::Revive(lane_) && BeginGroup();
  if (!begun_) SettleIfLast();
}

// Another process writing (the sqlite3 shell, a backup) makes SQLite's
// BEGIN IMMEDIATE busy. The wait for it is taken without the lock, so that
// the commands queued behind are not held too, and it is short: a command
// that cannot begin fails, and its requester is answered at once. Only
// BEGIN itself runs without SQLite's busy wait: whoever takes the lock
// meanwhile finds the usual one.
bool Transaction::BeginGroup() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kBusyWaitMs);
  auto group = std::make_shared<Database::Group>();  // made first: nothing can fail once BEGIN has run
  Connection& connection = *lane_.connection;
  for (;;) {
    connection.SetBusyWait(0);
    const bool begun = connection.Begin("SAVEPOINT command");
    const bool busy = !begun && connection.Busy();
    connection.SetBusyWait(Database::kStatementBusyWaitMs);
    if (begun) {
      lane_.group = std::move(group);
      return true;
    }
    if (connection.TransactionOpen()) connection.Exec("ROLLBACK");  // begun, but no savepoint
    if (!busy || std::chrono::steady_clock::now() >= deadline) return false;
    guard_.unlock();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    guard_.lock();
    database_.Hold(lane_);
    if (lane_.group) return lane_.connection->Exec("SAVEPOINT command");  // begun meanwhile: join it
  }
}

void Transaction::SettleIfLast() {
  if (!lane_.group) return;
  if (lane_.queued.load() == 0 || !lane_.connection->TransactionOpen()) database_.SettleGroup(lane_);
}

// Undoes this command's work alone; the group goes on (unless the
// database has ended all of it, which SettleIfLast sees).
void Transaction::Undo() {
  Connection& connection = *lane_.connection;
  if (connection.TransactionOpen()) {
    connection.Exec("ROLLBACK TO command");
    connection.Exec("RELEASE command");
  }
  SettleIfLast();
}

Transaction::~Transaction() {
  if (begun_ && !done_) Undo();
  lane_.users.fetch_sub(1);
}

bool Transaction::Commit() {
  if (!begun_ || done_) return false;
  done_ = true;
  Connection& connection = *lane_.connection;
  // A statement that failed (a read taken for "no row" included) leaves a
  // server's transaction unusable until this command's work is undone.
  if (!connection.TransactionOpen() || connection.TransactionFailed()) {
    Undo();
    return false;
  }
  std::shared_ptr<Database::Group> group = lane_.group;
  if (lane_.queued.load() == 0 || group->members + 1 >= database_.MaxGroup()) {
    // The last member: its release goes with the COMMIT. Its work is
    // whole (every statement succeeded), so the release cannot fail
    // alone; if anything does, the group has failed.
    ++group->members;
    database_.SettleGroup(lane_, "RELEASE command");
  } else {
    if (!connection.Exec("RELEASE command")) {
      Undo();
      return false;
    }
    ++group->members;
    lane_.settled.wait(guard_, [&group] { return group->settled; });
    database_.Hold(lane_);
  }
  database_.transactionSeconds_.Observe(
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count());
  return group->committed;
}

}  // namespace db
