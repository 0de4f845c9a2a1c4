// The worker pool's queue is bounded: with every worker busy and the queue
// full, a request is answered at once with 503 and a Retry-After, and
// counted, instead of waiting without limit.
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <vector>

#include "host/fw_HttpResponse.h"
#include "host/fw_IsapiExtension.h"
#include "isapi/exchange.h"

namespace {

// An extension whose requests wait until the test lets them finish.
class HeldExtension : public CIsapiExtensionBase {
 public:
  void Release() {
    std::lock_guard lock(mutex_);
    released_ = true;
    changed_.notify_all();
  }
  void WaitStarted(int count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return started_ >= count; });
  }

 protected:
  void DispatchStencilCall(EXTENSION_CONTROL_BLOCK* ecb) override {
    {
      std::unique_lock lock(mutex_);
      ++started_;
      changed_.notify_all();
      changed_.wait(lock, [&] { return released_; });
    }
    CHttpResponse response(ecb);
    response.Write(std::string("done"));
    response.Flush();
    DoneWithSession(ecb);
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int started_ = 0;
  bool released_ = false;
};

TEST(Pool, AFullQueueIsAnswered503WithRetryAfterAndCounted) {
  HeldExtension extension;
  ASSERT_TRUE(extension.InitializeThreadPool(1, 2));
  std::vector<std::unique_ptr<isapi::Exchange>> exchanges;
  auto send = [&] {
    exchanges.push_back(std::make_unique<isapi::Exchange>(isapi::Request{}));
    return extension.FrameworkHttpExtensionProc(exchanges.back()->Ecb());
  };
  EXPECT_EQ(send(), DWORD{HSE_STATUS_PENDING});
  extension.WaitStarted(1);  // the worker holds the first; two may wait
  EXPECT_EQ(send(), DWORD{HSE_STATUS_PENDING});
  EXPECT_EQ(send(), DWORD{HSE_STATUS_PENDING});
  for (int refused = 1; refused <= 2; ++refused) {
    EXPECT_EQ(send(), DWORD{HSE_STATUS_SUCCESS});
    const isapi::Response busy = exchanges.back()->TakeResponse();
    EXPECT_EQ(busy.status, 503);
    const int retryAfter = std::atoi(busy.Header("Retry-After").c_str());
    EXPECT_GE(retryAfter, 5);
    EXPECT_LE(retryAfter, 15);
    EXPECT_EQ(extension.RefusedForLoad(), static_cast<uint64_t>(refused));
  }
  extension.Release();
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(exchanges[i]->WaitDone(5000));
    EXPECT_EQ(exchanges[i]->TakeResponse().body, "done");
  }
  EXPECT_EQ(send(), DWORD{HSE_STATUS_PENDING}) << "room again";
  ASSERT_TRUE(exchanges.back()->WaitDone(5000));
  extension.FrameworkTerminateExtension(0);
}

}  // namespace
