// How long logs are kept: rows older than an age and rows beyond a count
// per table are deleted, oldest first, by a thread of the service's own,
// in small transactions so that the log writer never waits long.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "db_Database.h"

namespace st {

struct RetentionLimits {
  uint32_t maxAgeDays = 90;       // 0: no age limit
  int64_t maxRows = 10'000'000;   // per table; 0: no limit
};

// At most this many rows go per transaction.
inline constexpr int64_t kRetentionBatch = 500;

// One pass over every log table. `stopping` is asked between transactions;
// `report` gets a line for each table that lost rows. False when the
// database failed.
bool RunRetention(db::Database& database, const RetentionLimits& limits, const std::function<bool()>& stopping,
                  const std::function<void(const std::string&)>& report);

class Retention {
 public:
  Retention(db::Database& database, RetentionLimits limits, std::chrono::seconds interval)
      : database_(database), limits_(limits), interval_(interval) {}
  ~Retention() { Stop(); }
  Retention(const Retention&) = delete;
  Retention& operator=(const Retention&) = delete;

  // A first pass shortly after start, then one every interval.
  void Start();
  // Ends the thread, between two transactions at the latest.
  void Stop();

 private:
  void Run();
  bool Stopping();

  db::Database& database_;
  RetentionLimits limits_;
  std::chrono::seconds interval_;
  std::mutex lock_;
  std::condition_variable wake_;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace st
