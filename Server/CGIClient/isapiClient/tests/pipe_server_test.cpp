#include "channel/pipe_Server.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "channel/pipe_Client.h"
#include "platform/errors.h"
#include "platform/process.h"
#include "support/str_Format.h"
#include "test_support.h"
#include "trace_sink.h"

namespace {

using Clock = std::chrono::steady_clock;

TEST(PipeServer, ABusyNameIsRetriedFiveTimesThenGivenUp) {
  const std::u16string name = plat::testing::UniqueName("vgcr busy reply");
  plat::PipeServerEnd holder;
  ASSERT_TRUE(holder.Create(name.c_str(), 1, 1024, 1024, 1000));
  TraceCapture capture;
  CPipeServer server;
  auto start = Clock::now();
  EXPECT_FALSE(server.Initial(name.c_str()));
  auto elapsed = Clock::now() - start;
  EXPECT_GE(elapsed, std::chrono::milliseconds(450));
  EXPECT_LT(elapsed, std::chrono::milliseconds(3000));
  EXPECT_EQ(capture.Count("[CPipeServer::Initial] Retry 5 times. Still Failed!"), 1);
}

// Only the pipe step can be made to fail from outside; the event and
// security-descriptor steps report their own lines the same way.
TEST(PipeServer, EachStepOfInitialTellsItsOwnFailure) {
  TraceCapture capture;
  CPipeServer server;
  EXPECT_EQ(capture.Count("CPipeServer::CPipeServer - Windows API GetNamedPipeClientProcessId is supported on this platform"),
            1);
  EXPECT_FALSE(server.Initial(std::u16string(300, u'n').c_str()));
  EXPECT_EQ(capture.Count("[CPipeServer::Initial] CreateNamedPipe failed! err="), 1);
  EXPECT_EQ(capture.Count("[CPipeServer::Initial] CreateEvent failed!"), 0);
}

TEST(PipeServer, TheLocalEventEndsAWaitWithSuccessButNoData) {
  const std::u16string name = plat::testing::UniqueName("vgcr local event");
  CPipeServer server;
  ASSERT_TRUE(server.Initial(name.c_str()));
  const uint32_t waiter = plat::CurrentThreadId();
  std::thread setter([waiter] {
    plat::SleepMs(50);
    char16_t eventName[64];
    fmt16::Format(eventName, 64, u"PIPE_OBJ_LOCAL_EVENT_%u", waiter);
    plat::Event event;
    if (event.Open(eventName)) event.Set();
  });
  char buffer[16];
  uint32_t length = 16;
  EXPECT_EQ(server.Recv(buffer, &length, nullptr), 1);
  EXPECT_TRUE(server.ExtraSignalled());
  EXPECT_EQ(length, 16u) << "the length is left alone: nothing was read";
  setter.join();
}

}  // namespace
