#include <gtest/gtest.h>

#include <thread>

#include "platform/errors.h"
#include "platform/event.h"
#include "platform/process.h"
#include "platform/timer.h"
#include "test_support.h"

namespace plat {
namespace {

TEST(Event, OpenedByNameIsTheSameEvent) {
  std::u16string name = testing::UniqueName("VGCR_EVENT");
  Event created;
  ASSERT_TRUE(created.Create(name.c_str(), false));
  Event opened;
  ASSERT_TRUE(opened.Open(name.c_str()));
  EXPECT_EQ(created.Wait(0), kWaitTimeout);
  ASSERT_TRUE(opened.Set());
  EXPECT_EQ(created.Wait(0), kWaitObject0);
  EXPECT_EQ(created.Wait(0), kWaitObject0) << "manual reset: stays signalled";
  ASSERT_TRUE(created.Reset());
  EXPECT_EQ(opened.Wait(0), kWaitTimeout);
}

TEST(Event, NameIsFreedWhenTheLastHandleCloses) {
  std::u16string name = testing::UniqueName("VGCR_EVENT");
  {
    Event e;
    ASSERT_TRUE(e.Create(name.c_str(), false));
  }
  Event opened;
  EXPECT_FALSE(opened.Open(name.c_str()));
  EXPECT_EQ(LastError(), kErrorFileNotFound);
}

TEST(WaitForAny, ReportsTheIndexOfTheSignalledHandle) {
  Event a, b;
  ASSERT_TRUE(a.Create(nullptr, false));
  ASSERT_TRUE(b.Create(nullptr, false));
  WaitHandle handles[] = {a.Handle(), b.Handle()};
  EXPECT_EQ(WaitForAny(handles, 2, 10), kWaitTimeout);
  b.Set();
  EXPECT_EQ(WaitForAny(handles, 2, 10), kWaitObject0 + 1);
  EXPECT_EQ(WaitForAny(handles, 0, 10), kWaitFailed);
}

TEST(WaitableTimer, SignalsAtItsDueTimeAndReArmingClearsIt) {
  WaitableTimer timer;
  ASSERT_TRUE(timer.Create());
  ASSERT_TRUE(timer.Arm(30));
  EXPECT_EQ(WaitForOne(timer.Handle(), 0), kWaitTimeout);
  EXPECT_EQ(WaitForOne(timer.Handle(), 5000), kWaitObject0);
  EXPECT_EQ(WaitForOne(timer.Handle(), 0), kWaitObject0) << "manual reset timer stays signalled";
  ASSERT_TRUE(timer.Arm(60000));
  EXPECT_EQ(WaitForOne(timer.Handle(), 0), kWaitTimeout);
  ASSERT_TRUE(timer.Arm(0));
  EXPECT_EQ(WaitForOne(timer.Handle(), 5000), kWaitObject0) << "a due time of 0 fires at once";
}

}  // namespace
}  // namespace plat
