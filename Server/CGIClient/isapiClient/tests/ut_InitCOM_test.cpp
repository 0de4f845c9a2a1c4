#include "support/ut_InitCOM.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/com.h"
#include "trace_sink.h"

namespace {

using plat::kCoInitApartmentThreaded;
using plat::kCoInitMultithreaded;

// Every case runs on a thread that COM has not seen before.
template <typename Fn>
void OnFreshThread(Fn fn) {
  std::thread t(fn);
  t.join();
}

TEST(ComInitiator, FreshThreadIsInitialisedAndReleasedByTheScope) {
  OnFreshThread([] {
    {
      UTIL::CComInitiator com;
      EXPECT_EQ(com.GetResult(), plat::kSOk);
      EXPECT_EQ(com.IsInitialized(), 1);
    }
    // The scope's CoUninitialize left the thread free for another model.
    EXPECT_EQ(plat::CoInitializeEx(kCoInitMultithreaded), plat::kSOk);
    plat::CoUninitialize();
  });
}

TEST(ComInitiator, SameModelAlreadyInitialisedIsSFalseAndBalancedOnce) {
  OnFreshThread([] {
    ASSERT_EQ(plat::CoInitializeEx(kCoInitApartmentThreaded), plat::kSOk);
    {
      UTIL::CComInitiator com;
      EXPECT_EQ(com.GetResult(), plat::kSFalse);
      EXPECT_EQ(com.IsInitialized(), 1);
    }
    // The thread's own initialisation is still in force.
    EXPECT_EQ(plat::CoInitializeEx(kCoInitMultithreaded), plat::kRpcEChangedMode);
    plat::CoUninitialize();
    EXPECT_EQ(plat::CoInitializeEx(kCoInitMultithreaded), plat::kSOk);
    plat::CoUninitialize();
  });
}

TEST(ComInitiator, OtherModelIsKeptAndNothingIsUninitialised) {
  TraceCapture capture;
  OnFreshThread([] {
    ASSERT_EQ(plat::CoInitializeEx(kCoInitMultithreaded), plat::kSOk);
    {
      UTIL::CComInitiator com(kCoInitApartmentThreaded, false);
      EXPECT_EQ(com.GetResult(), plat::kRpcEChangedMode);
      EXPECT_EQ(com.IsInitialized(), 0);
    }
    EXPECT_EQ(plat::CoInitializeEx(kCoInitMultithreaded), plat::kSFalse) << "still multi-threaded";
    plat::CoUninitialize();
    plat::CoUninitialize();
  });
  EXPECT_EQ(capture.Messages(),
            (std::vector<std::string>{
                "UTIL::CComInitiator::Initialize - CoInitializeEx failed due to the thread model change "
                "(RPC_E_CHANGED_MODE) with COM error code: [-2147417850].",
                "UTIL::CComInitiator::Initialize - Keep the original thread model.",
                "UTIL::CComInitiator::Initialize - CoInitializeEx failed with COM error code: [-2147417850].",
                "UTIL::CComInitiator::DeInitialize - Due to CoInitializeEx failed, skip to call CoUninitialize.",
            }));
}

// ForceAdjustThreadModel on a thread initialised `nested` times as
// multi-threaded besides the object's own initialisation, which the
// adjustment undoes first: each attempt of the change then drops one more.
void ForceFromNestedMta(int nested, plat::HResult expected, int retryLines) {
  TraceCapture capture;
  OnFreshThread([&] {
    for (int i = 0; i < nested; ++i) ASSERT_GE(plat::CoInitializeEx(kCoInitMultithreaded), 0);
    {
      UTIL::CComInitiator com(kCoInitMultithreaded, false);
      capture.Clear();
      EXPECT_EQ(com.ForceAdjustThreadModel(kCoInitApartmentThreaded), expected);
      EXPECT_EQ(com.IsInitialized(), expected >= 0 ? 1 : 0);
    }
    // Leave the thread clean, whatever is left of the nesting.
    for (int i = 0; i < nested + 1; ++i) plat::CoUninitialize();
  });
  EXPECT_EQ(capture.Count("Thread model change failed, try again, retry times"), retryLines);
  if (retryLines > 0) {
    EXPECT_EQ(capture.Count("retry times: [" + std::to_string(retryLines) + "]."), 1);
  }
  EXPECT_EQ(capture.Count("Thread model change successfully."), expected >= 0 ? 1 : 0);
  EXPECT_EQ(capture.Count("UTIL::CComInitiator::ForceAdjustThreadModel - Initiate with thread model: [2] result: [" +
                          std::to_string(expected) + "]."),
            1);
}

TEST(ComInitiator, ForcedChangeSucceedsOnTheTenthAttempt) {
  ForceFromNestedMta(10, plat::kSOk, 9);
}

TEST(ComInitiator, ForcedChangeGivesUpAfterExactlyTenAttempts) {
  ForceFromNestedMta(11, plat::kRpcEChangedMode, 10);
}

}  // namespace
