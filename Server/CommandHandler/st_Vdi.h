// VDI coordination: the desktops of one pool (one hypervisor host, say)
// share a number of slots, so that they do not all scan at once. A desktop
// asks before a task and is told to start or to wait; it reports while the
// task runs and when it is done. Everything lives in the table vdi_tasks,
// so a person can see which desktops ran what, and when.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "db_Database.h"

namespace st {

struct VdiLimits {
  uint32_t slotsPerPool = 5;
  // A running task that has not reported for this long is dead, and its
  // slot free; a queued desktop that has not asked again for this long has
  // gone, and its place is given up.
  std::chrono::seconds taskTimeout{600};
  // What a waiting desktop is told: ask again after this long.
  std::chrono::seconds retryAfter{30};
};

struct VdiRequest {
  std::string uid;
  std::string pool;
  std::string taskKind;
  std::string taskId;
  int32_t progress = 0;
  int32_t result = 0;
};

// The tagCln_VdiAnswer values.
struct VdiDecision {
  int32_t decision = 0;
  uint32_t retryAfter = 0;
  uint32_t position = 0;
};

class VdiCoordinator {
 public:
  VdiCoordinator(db::Database& database, VdiLimits limits) : database_(database), limits_(limits) {}

  // Each is one transaction; false when the database failed. `nowMs` is the
  // time in milliseconds since 1970 (the tests move it).
  bool Start(const VdiRequest& request, int64_t nowMs, VdiDecision* decision);
  bool Running(const VdiRequest& request, int64_t nowMs, VdiDecision* decision);
  bool Complete(const VdiRequest& request, int64_t nowMs, VdiDecision* decision);

  static int64_t NowMs();

 private:
  bool Known(const std::string& uid);
  // Running tasks silent for longer than the time-out die; queued desktops
  // that stopped asking leave the queue.
  bool ExpireStale(const std::string& pool, int64_t nowMs);
  // The one task of this desktop, pool and id in that state; 0 when none.
  int64_t FindTask(const VdiRequest& request, const char* state);
  bool Report(const VdiRequest& request, int64_t nowMs, bool complete, VdiDecision* decision);

  db::Database& database_;
  const VdiLimits limits_;
};

}  // namespace st
