// The server resource guards: the server's monitoring service publishes
// whether it is over its memory threshold and its disk threshold status in
// two shared-memory records; the extension re-reads each only every N
// requests or M milliseconds (both from the record), lock-free.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/server_records.h"

using plat::kDiskThresholdRecord;
using plat::kMemThresholdRecord;

struct GuardCaches {
  std::atomic<uint32_t> memRequestCounter{0};
  std::atomic<uint32_t> memCheckCount{200};
  std::atomic<uint32_t> memMonitorInterval{2000};
  std::atomic<uint32_t> memOverThreshold{0};
  std::atomic<uint32_t> memLastCheckTick{0};
  std::atomic<uint32_t> diskThresholdStatus{plat::kDiskNormal};
  std::atomic<uint32_t> diskMonitorInterval{5000};
  std::atomic<uint32_t> diskCheckCount{200};
  std::atomic<uint32_t> diskRequestCounter{0};
  std::atomic<uint32_t> diskLastCheckTick{0};
};

using TickSource = uint32_t (*)();

// True when the server is over its memory threshold.
bool CheckMemoryThreshold(GuardCaches& caches, TickSource now);
// Stores the current disk threshold status into *slot.
void CheckDiskThreshold(GuardCaches& caches, TickSource now, uint32_t* slot);
