#include "st_Retention.h"

#include <mutex>

#include "channel/rec_Logs.h"

namespace st {
namespace {

constexpr const char* kRetentionLock = "vgcr retention";

// Tables that grow like logs, with the columns retention goes by (id,
// received).
constexpr const char* kHistoryTables[] = {"update_history"};

// Deletes, a batch per transaction, the rows `pick` selects (a query that
// returns ids, oldest first, at most ?2 of them; `bind` binds ?1). -1 when
// it failed.
int64_t DeleteInBatches(db::Database& database, const std::string& table, const std::string& pick,
                        const std::function<void(db::Statement&)>& bind, const std::function<bool()>& stopping) {
  const std::string sql = "DELETE FROM " + table + " WHERE id IN (" + pick + ")";
  int64_t deleted = 0;
  for (;;) {
    if (stopping()) return deleted;
    int64_t changed = 0;
    const bool ok = db::InTransaction(database, [&] {
      db::Statement s = database.Prepare(sql);
      bind(s);
      if (!s.Bind(2, kRetentionBatch).Run()) return false;
      changed = database.Changes();
      return true;
    });
    if (!ok) return -1;
    deleted += changed;
    if (changed < kRetentionBatch) return deleted;
  }
}

// The highest id the table may lose so that maxRows rows remain; 0: none.
int64_t ExcessBound(db::Database& database, const std::string& table, int64_t maxRows) {
  const auto guard = database.Lock();
  db::Statement s = database.Prepare("SELECT COALESCE(MAX(id), 0) FROM " + table);
  const int64_t newest = s.Step() ? s.Int(0) : 0;
  return newest > maxRows ? newest - maxRows : 0;
}

std::mutex deletionsLock;
std::map<std::string, uint64_t>& Deletions() {
  static auto* deletions = new std::map<std::string, uint64_t>();
  return *deletions;
}

void CountDeleted(const std::string& table, int64_t rows) {
  std::lock_guard lock(deletionsLock);
  Deletions()[table] += static_cast<uint64_t>(rows);
}

bool PruneTable(db::Database& database, const std::string& table, const RetentionLimits& limits,
                const std::function<bool()>& stopping, const std::function<void(const std::string&)>& report) {
  if (limits.maxAgeDays > 0) {
    const std::string cutoff = "-" + std::to_string(limits.maxAgeDays) + " days";
    const int64_t old = DeleteInBatches(
        database, table,
        "SELECT id FROM " + table + " WHERE received < strftime('%Y-%m-%d %H:%M:%f','now',?1) ORDER BY id LIMIT ?2",
        [&](db::Statement& s) { s.Bind(1, cutoff); }, stopping);
    if (old < 0) return false;
    if (old > 0) CountDeleted(table, old);
    if (old > 0)
      report(table + " " + std::to_string(old) + " rows older than " + std::to_string(limits.maxAgeDays) + " days");
  }
  if (limits.maxRows > 0) {
    const int64_t bound = ExcessBound(database, table, limits.maxRows);
    if (bound == 0) return true;
    // Only retention deletes, always the oldest: the newest maxRows rows are
    // exactly those above MAX(id) - maxRows.
    const int64_t excess =
        DeleteInBatches(database, table, "SELECT id FROM " + table + " WHERE id <= ?1 ORDER BY id LIMIT ?2",
                        [&](db::Statement& s) { s.Bind(1, bound); }, stopping);
    if (excess < 0) return false;
    if (excess > 0) CountDeleted(table, excess);
    if (excess > 0)
      report(table + " " + std::to_string(excess) + " rows beyond the newest " + std::to_string(limits.maxRows));
  }
  return true;
}

}  // namespace

std::map<std::string, uint64_t> RetentionDeletions() {
  std::lock_guard lock(deletionsLock);
  return Deletions();
}

bool RunRetention(db::Database& database, const RetentionLimits& limits, const std::function<bool()>& stopping,
                  const std::function<void(const std::string&)>& report) {
  // Services sharing a database take turns: whoever holds the lock prunes
  // for all, and the others leave it to that one this time.
  if (!database.TryLockShared(kRetentionLock)) return true;
  struct Release {
    db::Database& database;
    ~Release() { database.UnlockShared(kRetentionLock); }
  } release{database};
  bool ok = true;
  for (const logrec::Layout* layout : logrec::kLayouts) {
    if (stopping()) break;
    ok = PruneTable(database, layout->table, limits, stopping, report) && ok;
  }
  for (const char* table : kHistoryTables) {
    if (stopping()) break;
    ok = PruneTable(database, table, limits, stopping, report) && ok;
  }
  return ok;
}

}  // namespace st
