#include "host/grd_Guards.h"

#include <gtest/gtest.h>

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

TEST(MemoryGuard, ARecordThatSaysOverHoldsUntilItSaysZero) {
  GuardRecord record(kMemThresholdRecord);
  ASSERT_TRUE(record.ok());
  record.Set(1, 1, 2);  // over; re-read every request; every 2 s
  GuardCaches caches;
  g_now = 5000;
  EXPECT_TRUE(CheckMemoryThreshold(caches, FakeTick));
  EXPECT_EQ(caches.memCheckCount.load(), 1u);
  EXPECT_EQ(caches.memMonitorInterval.load(), 2000u) << "seconds kept as milliseconds";
  EXPECT_TRUE(CheckMemoryThreshold(caches, FakeTick));
  record.Set(0, 1, 2);
  EXPECT_FALSE(CheckMemoryThreshold(caches, FakeTick)) << "a check count of 1 reads every request";
}

TEST(MemoryGuard, TheRecordIsReadEveryNRequestsOrWhenTimeIsUp) {
  GuardRecord record(kMemThresholdRecord);
  ASSERT_TRUE(record.ok());
  record.Set(0, 3, 10);
  GuardCaches caches;
  g_now = 1000000;
  EXPECT_FALSE(CheckMemoryThreshold(caches, FakeTick));  // due: time
  record.Set(1, 3, 10);
  EXPECT_FALSE(CheckMemoryThreshold(caches, FakeTick)) << "request 1 of 3: cached";
  EXPECT_FALSE(CheckMemoryThreshold(caches, FakeTick)) << "request 2 of 3: cached";
  EXPECT_TRUE(CheckMemoryThreshold(caches, FakeTick)) << "request 3: read";
  record.Set(0, 3, 10);
  g_now += 10001;
  EXPECT_FALSE(CheckMemoryThreshold(caches, FakeTick)) << "10 s passed: read";
}

TEST(MemoryGuard, TheTickWrapStillTriggersARead) {
  GuardRecord record(kMemThresholdRecord);
  ASSERT_TRUE(record.ok());
  record.Set(0, 1000, 2);
  GuardCaches caches;
  g_now = 0xFFFFFF00u;
  EXPECT_FALSE(CheckMemoryThreshold(caches, FakeTick));
  record.Set(1, 1000, 2);
  g_now = 0xFFFFFF00u + 1000;  // wrapped, 1 s later
  EXPECT_FALSE(CheckMemoryThreshold(caches, FakeTick));
  g_now = 0xFFFFFF00u + 2001;  // wrapped, past the interval
  EXPECT_TRUE(CheckMemoryThreshold(caches, FakeTick));
}

TEST(MemoryGuard, ACheckCountOfZeroCountsAsOne) {
  GuardRecord record(kMemThresholdRecord);
  ASSERT_TRUE(record.ok());
  record.Set(1, 0, 1000);
  GuardCaches caches;
  g_now = 50000;
  EXPECT_TRUE(CheckMemoryThreshold(caches, FakeTick));
  record.Set(0, 0, 1000);
  EXPECT_FALSE(CheckMemoryThreshold(caches, FakeTick)) << "no division by zero; read again";
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
