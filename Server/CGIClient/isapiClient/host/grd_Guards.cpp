#include "grd_Guards.h"

#include "platform/errors.h"
#include "platform/shared_memory.h"
#include "support/dbg_Trace.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\isapi_Client";
constexpr char16_t kCheckDisk[] = u"CisapiClientExtension::CheckDiskThreshold";

// A check count of 0 in a record would divide by zero: it counts as 1.
uint32_t NonZero(uint32_t count) { return count ? count : 1; }

bool Due(std::atomic<uint32_t>& counter, std::atomic<uint32_t>& lastTick, std::atomic<uint32_t>& interval,
         std::atomic<uint32_t>& checkCount, uint32_t now) {
  // Unsigned difference: the wrap of the tick count is harmless.
  const bool timeUp = now - lastTick.load() > interval.load();
  const uint32_t count = counter.fetch_add(1) + 1;
  return timeUp || count % NonZero(checkCount.load()) == 0;
}

}  // namespace

bool CheckMemoryThreshold(GuardCaches& c, TickSource now) {
  const uint32_t tick = now();
  if (!Due(c.memRequestCounter, c.memLastCheckTick, c.memMonitorInterval, c.memCheckCount, tick)) {
    return c.memOverThreshold.load() != 0;
  }
  plat::SharedMemory record;
  if (!record.Open(kMemThresholdRecord, plat::MapAccess::kAll)) {
    VGCR_TRACE(69, u"[CisapiClientExtension::CheckMemoryThreshold] OpenFileMapping is failed, err = %d",
               plat::LastError());
  } else if (uint32_t words[3]; !record.Read(words, sizeof words)) {
    VGCR_TRACE(69, u"[CisapiClientExtension::CheckMemoryThreshold] MapViewOfFile is failed, err =  %d",
               plat::LastError());
  } else {
    c.memOverThreshold = words[0];
    c.memCheckCount = words[1];
    c.memMonitorInterval = words[2] * 1000;
    VGCR_TRACE(69,
               u"[CisapiClientExtension::CheckMemoryThreshold] IsOverMemThreshold(y/n) = %d, ISAPI check count(every "
               u"N request) = %d, MemMonitor Frequency(every M milliseconds) = %d",
               words[0], words[1], words[2] * 1000);
  }
  record.Close();
  c.memRequestCounter = 0;
  c.memLastCheckTick = tick;
  return c.memOverThreshold.load() != 0;
}

void CheckDiskThreshold(GuardCaches& c, TickSource now, uint32_t* slot) {
  VGCR_TRACE(68, u"%s - >>>", kCheckDisk);
  const uint32_t tick = now();
  if (!Due(c.diskRequestCounter, c.diskLastCheckTick, c.diskMonitorInterval, c.diskCheckCount, tick)) {
    *slot = c.diskThresholdStatus.load();
    VGCR_TRACE(68, u"%s - <<<", kCheckDisk);
    return;
  }
  plat::SharedMemory record;
  if (!record.Open(kDiskThresholdRecord, plat::MapAccess::kReadWrite)) {
    VGCR_TRACE(69, u"%s - ::OpenFileMapping failed with Windows error code:[%d].", kCheckDisk, plat::LastError());
  } else if (uint32_t words[3]; !record.Read(words, sizeof words)) {
    VGCR_TRACE(69, u"%s - ::MapViewOfFile failed with Windows error code:[%d].", kCheckDisk, plat::LastError());
  } else {
    const uint32_t status = words[0], frequency = words[1], count = words[2];
    c.diskThresholdStatus = status;
    c.diskMonitorInterval = frequency * 1000;
    c.diskCheckCount = count;
    VGCR_TRACE(68,
               u"%s - Disk threshold status:[%u]; Disk threshold monitor frequency:[%u]; Disk threshold ISAPI check "
               u"count:[%u].",
               kCheckDisk, status, frequency * 1000, count);
  }
  record.Close();
  c.diskLastCheckTick = tick;
  c.diskRequestCounter = 0;
  *slot = c.diskThresholdStatus.load();
  VGCR_TRACE(68, u"%s - <<<", kCheckDisk);
}
