// A small face over the database (db_Connection.h): a SQLite file through
// one connection, or a PostgreSQL server through a few (lanes, below);
// statements prepared once per connection and reused, and transactions
// that roll back unless committed.
// Every method is called with the database's lock held (Transaction or
// Database::Lock holds it).
//
// Group commit: the transactions of commands that arrive together share
// one database transaction. Each command's work runs in a savepoint of its
// own (a failure rolls back that command alone); the last command of the
// group, the one that finds nobody waiting behind it, commits for all, and
// every Commit returns only once the commit that holds its work is done, so
// whatever a command answers after Commit is stored.
//
// Lanes: on a server database the service keeps several connections, each
// with its own lock and its own groups, and a command takes the least busy
// one, so that commands run side by side where the server allows (a file
// database has one writer at a time, and one lane). Statements are
// prepared on the lane the calling thread holds.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "db_Connection.h"
#include "metrics/text.h"

namespace db {

class Statement {
 public:
  // A null statement (one that did not prepare) fails every call.
  explicit Statement(Cursor* cursor) : cursor_(cursor), failed_(cursor == nullptr) {}
  // Reset when done with, so that no read stays open on the connection.
  ~Statement() {
    if (cursor_) cursor_->Reset();
  }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  // Binds by 1-based position; texts are copied.
  Statement& Bind(int index, int64_t value);
  Statement& Bind(int index, const std::string& text);
  Statement& BindNull(int index);
  // True while a row is ready.
  bool Step();
  // Runs a statement that returns no rows; false on an error.
  bool Run();
  int64_t Int(int column) const { return cursor_->Int(column); }
  std::string Text(int column) const { return cursor_->Text(column); }
  bool IsNull(int column) const { return cursor_->Type(column) == kNull; }
  // kInteger, kFloat, kText, kBlob or kNull.
  int Type(int column) const { return cursor_->Type(column); }
  double Real(int column) const { return cursor_->Real(column); }
  int Columns() const { return cursor_->Columns(); }
  std::string ColumnName(int column) const { return cursor_->ColumnName(column); }
  bool failed() const { return failed_; }

 private:
  Cursor* cursor_;
  bool failed_;
};

class Database {
 public:
  ~Database();
  // Opens the database at `location`: a PostgreSQL server
  // (IsPostgresLocation; `password` is handed to it apart), else a SQLite
  // file, created when missing, in WAL mode so that a person may read it
  // with the sqlite3 shell while the service runs. A damaged file is
  // refused with a message saying so.
  // `connections`: the lanes on a server database (a file has one).
  static std::unique_ptr<Database> Open(const std::string& location, std::string* error,
                                        const std::string& password = "", int connections = 1);
  // A connection that only reads an existing database (the service's
  // metrics): no schema, no check, nothing written.
  static std::unique_ptr<Database> OpenForReading(const std::string& location, std::string* error,
                                                  const std::string& password = "");
  Backend backend() const { return backend_; }
  // The connection of the lane the calling thread holds.
  Connection& connection() { return *Current().connection; }
  int lanes() const { return static_cast<int>(lanes_.size()); }
  // A lock no other service holds meanwhile, held until UnlockShared
  // (SQLite: nothing to take). False when another service holds it.
  bool TryLockShared(const std::string& key);
  void UnlockShared(const std::string& key);

  // Runs one or more statements that return nothing.
  bool Exec(const std::string& sql);
  // A prepared statement, reset and cleared, cached by its text.
  Statement Prepare(const std::string& sql);
  std::string LastError() const;
  // The last call failed because another connection holds the database.
  bool Busy() const;
  // How long a statement waits for another connection's lock (SQLite's
  // busy time-out); kStatementBusyWaitMs unless a transaction is beginning.
  static constexpr int kStatementBusyWaitMs = 2000;
  void SetBusyWait(int ms);
  // Rows changed by the last INSERT, UPDATE or DELETE.
  int64_t Changes() const;

  // A lane to the caller alone, outside any transaction: a group of
  // transactions still open on it is committed first. `client`: see
  // Transaction.
  std::unique_lock<std::mutex> Lock(std::string_view client = {});

  // At most this many commands share one commit on a SQLite file, so that
  // the first of a long stream does not wait for the stream to end. On a
  // server each command commits alone: a shared commit would keep each
  // member's row locks until the last one's commit, and two groups holding
  // what the other's next member wants would deadlock; the server itself
  // writes the commits that come together to its log in one flush.
  static constexpr int kMaxGroup = 64;
  int MaxGroup() const { return backend_ == Backend::kSqlite ? kMaxGroup : 1; }
  // Commits whose group held more than one command, and the commands they
  // held (for the benchmarks' figures).
  struct GroupStats {
    uint64_t commits = 0, commands = 0;
  };
  GroupStats Groups() const;
  // Transaction time and commit sizes, as Prometheus text.
  void WriteMetrics(metrics::Writer& w) const;

 private:
  friend class Transaction;
  struct Group {
    int members = 0;
    bool settled = false;
    bool committed = false;
  };
  // One connection and the transactions queued on it.
  struct Lane {
    explicit Lane(std::unique_ptr<Connection> c) : connection(std::move(c)) {}
    std::unique_ptr<Connection> connection;
    std::chrono::steady_clock::time_point lastReconnect{};
    std::mutex lock;
    std::condition_variable settled;
    std::atomic<int> queued{0};     // transactions waiting for the lock
    std::atomic<int> users{0};      // transactions waiting or running
    std::shared_ptr<Group> group;   // the open group, null when none
  };
  explicit Database(std::vector<std::unique_ptr<Connection>> connections);
  // The lane the calling thread holds (the first when it holds none), and
  // the one with the fewest transactions; Hold makes a lane the thread's.
  Lane& Current() const;
  Lane& LeastBusy() const;
  // The lane of a client's commands (the least busy one for none).
  Lane& LaneFor(std::string_view client) const;
  void Hold(Lane& lane) const;
  // A server connection that went away is made again, at most every
  // kReconnectGapMs: meanwhile every command fails at once. Called with
  // the lane's lock held; false while the database is unreachable.
  static bool Revive(Lane& lane);
  static constexpr int kReconnectGapMs = 200;
  // Commits (or, when that fails, rolls back) the lane's open group and
  // wakes its members. Called with the lane's lock held.
  // `before`: the last member's release, sent with the COMMIT.
  void SettleGroup(Lane& lane, const std::string& before = "");
  Backend backend_;
  std::vector<std::unique_ptr<Lane>> lanes_;
  // Read without the lock: a scrape must not wait behind a transaction.
  std::atomic<uint64_t> sharedCommits_{0}, sharedCommands_{0};
  // From a command's wait for the lock to the end of the commit that holds
  // its work; and how many commands each commit held.
  metrics::Histogram transactionSeconds_{metrics::kLatencyBounds};
  metrics::Histogram commitSizes_{1, 2, 4, 8, 16, 32, 64};
};

// One command's work under the database's lock, in the open group (begun
// when none is open) and a savepoint of its own; rolled back when
// it goes out of scope without Commit, so no command leaves half its rows
// behind.
class Transaction {
 public:
  // How long a transaction waits for another process's write to end.
  static constexpr int kBusyWaitMs = 1000;
  // `client`: the uid the command is about, when it is about one. A
  // client's commands all take one lane, so that they run in the order they
  // came, as on a single connection: a settings text sent one way is there
  // for the fetch that follows it.
  explicit Transaction(Database& database, std::string_view client = {});
  ~Transaction();
  bool ok() const { return begun_; }
  // True once the commit that holds this work is done.
  bool Commit();

 private:
  bool BeginGroup();
  // With nobody queued behind, the open group is committed now.
  void SettleIfLast();
  void Undo();
  Database& database_;
  Database::Lane& lane_;
  const std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
  std::unique_lock<std::mutex> guard_;
  bool begun_ = false;
  bool done_ = false;
};

// Runs `work` (a callable returning bool) in one transaction: committed
// when it returns true, rolled back otherwise.
template <typename Work>
bool InTransaction(Database& database, Work&& work) {
  Transaction transaction(database);
  return transaction.ok() && work() && transaction.Commit();
}
template <typename Work>
bool InTransaction(Database& database, std::string_view client, Work&& work) {
  Transaction transaction(database, client);
  return transaction.ok() && work() && transaction.Commit();
}

// The current time as the tables keep it: UTC, "YYYY-MM-DD hh:mm:ss.sss".
// (On PostgreSQL the schema defines strftime for the forms the service
// uses.)
inline constexpr const char* kNowSql = "strftime('%Y-%m-%d %H:%M:%f','now')";

}  // namespace db
