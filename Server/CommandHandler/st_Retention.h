// How long logs are kept: rows older than an age and rows beyond a count
// per table are deleted, oldest first, by a thread of the service's own
// (a Periodic), in small transactions so that the log writer never waits
// long. The update history is kept as long as the logs.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "db_Database.h"

namespace st {

struct RetentionLimits {
  uint32_t maxAgeDays = 90;       // 0: no age limit
  int64_t maxRows = 10'000'000;   // per table; 0: no limit
};

// At most this many rows go per transaction.
inline constexpr int64_t kRetentionBatch = 500;

// A first pass soon after start, without holding the start itself up.
inline constexpr std::chrono::seconds kFirstRetentionPass{5};

// One pass over every log table and the update history. `stopping` is
// asked between transactions; `report` gets a line for each table that lost
// rows. False when the database failed.
bool RunRetention(db::Database& database, const RetentionLimits& limits, const std::function<bool()>& stopping,
                  const std::function<void(const std::string&)>& report);

// Rows retention has deleted since the process started, by table.
std::map<std::string, uint64_t> RetentionDeletions();

}  // namespace st
