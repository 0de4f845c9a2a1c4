#include "host/grd_Guards.h"

#include <gtest/gtest.h>

#include <vector>

#include "guard_record.h"
#include "trace_sink.h"

namespace {

uint32_t g_now = 0;
uint32_t FakeTick() { return g_now; }

TEST(MemoryGuard, WithoutARecordTheServerIsNeverOver) {
  GuardCaches caches;
  g_now = 100000;
  TraceCapture capture;
  for (int i = 0; i < 5; ++i) EXPECT_FALSE(CheckMemoryThreshold(caches, FakeTick));
  EXPECT_EQ(capture.Count("[CisapiClientExtension::CheckMemoryThreshold] OpenFileMapping is failed, err = 2"), 1)
      << "read once (time was due), then cached";
}

// A step publishes the record (over, check count, seconds) when asked to,
// sets the clock, and asks the guard.
struct Step {
  bool publish;
  uint32_t over, count, seconds;
  uint32_t tick;
  bool expected;
};
struct Sequence {
  const char* name;
  std::vector<Step> steps;
};

TEST(MemoryGuard, TheRecordIsReadEveryNRequestsOrWhenItsTimeIsUp) {
  constexpr uint32_t kWrap = 0xFFFFFF00u;
  const Sequence sequences[] = {
      // A check count of 1 reads the record at every request.
      {"over_until_zero", {{true, 1, 1, 2, 5000, true}, {false, 0, 0, 0, 5000, true}, {true, 0, 1, 2, 5000, false}}},
      // Requests 1 and 2 of 3 answer from the cache, the 3rd reads; so does 10 s later.
      {"every_third_or_time",
       {{true, 0, 3, 10, 1000000, false},
        {true, 1, 3, 10, 1000000, false},
        {false, 0, 0, 0, 1000000, false},
        {false, 0, 0, 0, 1000000, true},
        {true, 0, 3, 10, 1010001, false}}},
      {"tick_wrap", {{true, 0, 1000, 2, kWrap, false}, {true, 1, 1000, 2, kWrap + 1000, false},
                     {false, 0, 0, 0, kWrap + 2001, true}}},
      // No division by zero: a count of 0 counts as 1.
      {"count_zero", {{true, 1, 0, 1000, 50000, true}, {true, 0, 0, 1000, 50000, false}}},
  };
  for (const Sequence& sequence : sequences) {
    GuardRecord record(kMemThresholdRecord);
    ASSERT_TRUE(record.ok());
    GuardCaches caches;
    int index = 0;
    for (const Step& step : sequence.steps) {
      if (step.publish) record.Set(step.over, step.count, step.seconds);
      g_now = step.tick;
      EXPECT_EQ(CheckMemoryThreshold(caches, FakeTick), step.expected) << sequence.name << " step " << index++;
    }
  }
}

TEST(DiskGuard, ReadsItsOwnFieldOrderAndHandsTheStatusOn) {
  GuardRecord record(kDiskThresholdRecord);
  ASSERT_TRUE(record.ok());
  record.Set(1234, 7, 1);  // status, frequency (s), check count
  GuardCaches caches;
  g_now = 90000;
  uint32_t slot = 1700;
  TraceCapture capture;
  CheckDiskThreshold(caches, FakeTick, &slot);
  EXPECT_EQ(slot, 1234u);
  EXPECT_EQ(caches.diskMonitorInterval.load(), 7000u);
  EXPECT_EQ(caches.diskCheckCount.load(), 1u);
  EXPECT_EQ(capture.Count("CisapiClientExtension::CheckDiskThreshold - Disk threshold status:[1234]; Disk threshold "
                          "monitor frequency:[7000]; Disk threshold ISAPI check count:[1]."),
            1);
}

}  // namespace
