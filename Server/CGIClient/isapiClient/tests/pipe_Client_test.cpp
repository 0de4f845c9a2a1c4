#include "channel/pipe_Client.h"
#include "channel/pipe_Listener.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/errors.h"
#include "platform/pipe.h"
#include "test_support.h"

namespace {

// Reads every pipe message one client sends, until it closes.
std::vector<std::string> ReadAllMessages(plat::PipeServerEnd& server) {
  std::vector<std::string> messages;
  if (!server.Connect()) {
    // A client that came and went before the connect (Windows says so here).
    if (plat::LastError() != plat::kErrorIoPending) return messages;
    uint32_t n = 0;
    if (!server.Result(&n, true)) return messages;
  }
  for (;;) {
    char buffer[4096];
    uint32_t n = 0;
    bool ok = server.Read(buffer, sizeof buffer, &n);
    if (!ok && plat::LastError() == plat::kErrorIoPending) ok = server.Result(&n, true);
    if (!ok) break;
    messages.emplace_back(buffer, n);
  }
  return messages;
}

TEST(PipeClient, A2500ByteSendTravelsAs1024And1024And452) {
  std::u16string name = plat::testing::UniqueName("vgcr chunk test");
  plat::PipeServerEnd server;
  ASSERT_TRUE(server.Create(name.c_str(), 1, 1024, 1024, 1000));
  std::vector<std::string> messages;
  std::thread reader([&] { messages = ReadAllMessages(server); });
  std::string payload(2500, '\0');
  for (std::size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 7);
  {
    CPipeClient client;
    ASSERT_TRUE(client.Open(name.c_str())) << plat::LastError();
    uint32_t length = 2500;
    ASSERT_TRUE(client.Send(payload.data(), &length));
    EXPECT_EQ(length, 2500u);
    client.Close();
  }
  reader.join();
  ASSERT_EQ(messages.size(), 3u);
  EXPECT_EQ(messages[0].size(), 1024u);
  EXPECT_EQ(messages[1].size(), 1024u);
  EXPECT_EQ(messages[2].size(), 452u);
  EXPECT_EQ(messages[0] + messages[1] + messages[2], payload);
}

TEST(PipeClient, SendingNothingSucceedsAndWritesNothing) {
  std::u16string name = plat::testing::UniqueName("vgcr empty send");
  plat::PipeServerEnd server;
  ASSERT_TRUE(server.Create(name.c_str(), 1, 1024, 1024, 1000));
  std::vector<std::string> messages;
  std::thread reader([&] { messages = ReadAllMessages(server); });
  {
    CPipeClient client;
    ASSERT_TRUE(client.Open(name.c_str()));
    uint32_t length = 0;
    EXPECT_TRUE(client.Send("unused", &length));
    EXPECT_EQ(length, 0u);
    client.Close();
  }
  reader.join();
  EXPECT_TRUE(messages.empty());
}

TEST(PipeClient, BusyPipeIsWaitedForUntilAnInstanceIsFree) {
  std::u16string name = plat::testing::UniqueName("vgcr busy");
  plat::PipeServerEnd server;
  ASSERT_TRUE(server.Create(name.c_str(), 1, 1024, 1024, 1000));
  // The first client takes the only instance.
  CPipeClient first;
  ASSERT_TRUE(first.Open(name.c_str()));
  if (!server.Connect()) {
    uint32_t n = 0;
    ASSERT_TRUE(server.Result(&n, true));
  }
  std::thread release([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    first.Close();
    server.Disconnect();
    server.Connect();
  });
  CPipeClient second;
  bool opened = second.Open(name.c_str());
  release.join();
  EXPECT_TRUE(opened) << plat::LastError();
}

}  // namespace

// A listener told to stop while a sender has written its request but not
// yet closed still hands the request on once the close comes; a sender that
// never closes is given up after a grace, so the stop is bounded.
TEST(PipeListener, AStopFinishesARequestWhoseSenderClosesSoonAndBoundsOneThatNeverDoes) {
  for (const bool closes : {true, false}) {
    const std::u16string name = plat::testing::UniqueName("vgcr listener stop test");
    std::vector<std::string> handed;
    std::mutex mutex;
    CPipeListener listener(name, 1, [&](PipeRequest&& request) {
      std::lock_guard lock(mutex);
      handed.emplace_back(request.bytes.begin(), request.bytes.end());
    });
    plat::Event stop;
    ASSERT_TRUE(stop.Create(nullptr, false));
    ASSERT_TRUE(listener.Start(stop));
    CPipeClient client;
    ASSERT_TRUE(client.Open(name.c_str()));
    uint32_t size = 5;
    ASSERT_TRUE(client.Send("hello", &size));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    stop.Set();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (closes) client.Close();
    const auto start = std::chrono::steady_clock::now();
    listener.Join();
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_LT(took, std::chrono::seconds(5));
    if (!closes) {
      EXPECT_GT(took, std::chrono::milliseconds(1000)) << "the sender had its grace";
    }
    client.Close();
    std::lock_guard lock(mutex);
    EXPECT_EQ(handed, closes ? std::vector<std::string>{"hello"} : std::vector<std::string>{}) << closes;
  }
}

// Clients that connect and say nothing are dropped after a short while, so
// that a few of them cannot hold every instance: a real sender behind them
// is served promptly.
TEST(PipeListener, SilentClientsDoNotHoldTheInstances) {
  const std::u16string name = plat::testing::UniqueName("vgcr listener silent test");
  std::vector<std::string> handed;
  std::mutex mutex;
  CPipeListener listener(name, 2, [&](PipeRequest&& request) {
    std::lock_guard lock(mutex);
    handed.emplace_back(request.bytes.begin(), request.bytes.end());
  });
  plat::Event stop;
  ASSERT_TRUE(stop.Create(nullptr, false));
  ASSERT_TRUE(listener.Start(stop));
  std::vector<std::unique_ptr<plat::PipeClient>> silent;
  for (int i = 0; i < 6; ++i) {
    silent.push_back(std::make_unique<plat::PipeClient>());
    silent.back()->Open(name.c_str());  // those past the instances may be turned away
  }
  const auto start = std::chrono::steady_clock::now();
  CPipeClient sender;
  ASSERT_TRUE(sender.Open(name.c_str()));
  uint32_t size = 2;
  ASSERT_TRUE(sender.Send("hi", &size));
  sender.Close();
  for (int i = 0; i < 300; ++i) {
    {
      std::lock_guard lock(mutex);
      if (!handed.empty()) break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2500));
  EXPECT_GE(listener.LateClients(), 2u);
  stop.Set();
  listener.Join();
  std::lock_guard lock(mutex);
  EXPECT_EQ(handed, std::vector<std::string>{"hi"});
}

// A sender held up for a second (a busy machine) is still served when the
// listener is not crowded: the short wait is for crowds of silent clients.
TEST(PipeListener, ASlowSenderIsServedWhileTheListenerIsNotCrowded) {
  const std::u16string name = plat::testing::UniqueName("vgcr listener slow test");
  std::vector<std::string> handed;
  std::mutex mutex;
  CPipeListener listener(name, 4, [&](PipeRequest&& request) {
    std::lock_guard lock(mutex);
    handed.emplace_back(request.bytes.begin(), request.bytes.end());
  });
  plat::Event stop;
  ASSERT_TRUE(stop.Create(nullptr, false));
  ASSERT_TRUE(listener.Start(stop));
  CPipeClient sender;
  ASSERT_TRUE(sender.Open(name.c_str()));
  std::this_thread::sleep_for(std::chrono::milliseconds(1000));
  uint32_t size = 4;
  ASSERT_TRUE(sender.Send("late", &size));
  sender.Close();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  stop.Set();
  listener.Join();
  EXPECT_EQ(listener.LateClients(), 0u);
  std::lock_guard lock(mutex);
  EXPECT_EQ(handed, std::vector<std::string>{"late"});
}
