#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>
#include <vector>

#include "channel/cmdal2_OutputCmd.h"
#include "channel/ocl_Command.h"
#include "channel/pipe_Util.h"
#include "channel_fixture.h"
#include "platform/process.h"
#include "server_folder.h"
#include "trace_sink.h"

namespace {

using Clock = std::chrono::steady_clock;
using peer::Builder;
using peer::Reply;
using peer::ReplyKind;

// Answers a round trip with the command's identifier and a number, so that
// each caller can tell its own reply.
Reply EchoReply(int32_t number) {
  Reply reply;
  reply.make = [number](const peer::Received& r) {
    return Builder().Prologue(r.message.command, r.message.identifier).I32(number).WString(r.message.identifier).bytes();
  };
  return reply;
}

class Channel : public WithServicePeer {};

TEST_F(Channel, OneWayCommandArrivesAsBuilt) {
  CMsgSerializer message(u"CMDHLV2_CLN_ON_LOGON_USER");
  ser::WriteWString(message, u"{3F2504E0-4F89-11D3-9A0C-0305E82C3301}");
  ser::WriteWString(message, u"DOMAIN\\user");
  ser::WriteI32(message, -480);
  ASSERT_TRUE(cmdal2_Send(message));
  auto received = peer_.WaitFor(1);
  ASSERT_EQ(received.size(), 1u);
  const auto& r = received[0];
  EXPECT_EQ(r.pipe, u"Vanta Labs VGCR Command Handler Manager");
  ASSERT_TRUE(r.version2);
  ASSERT_TRUE(r.message.ok) << r.message.error;
  EXPECT_EQ(r.message.command, u"CMDHLV2_CLN_ON_LOGON_USER");
  EXPECT_EQ(r.message.identifier, message.Identifier());
  ASSERT_EQ(r.message.fields.size(), 3u);
  EXPECT_EQ(peer::AsWString(r.message.fields[1]), u"DOMAIN\\user");
  EXPECT_EQ(static_cast<int32_t>(peer::AsU32(r.message.fields[2])), -480);
  EXPECT_EQ(r.clientPid, plat::CurrentProcessId());
  EXPECT_EQ(message.GetSize(), 0u) << "the sender took the bytes";
}

TEST_F(Channel, RoundTripLoadsTheReplyIntoTheSameSerializer) {
  peer_.Script(u"CMDHLV2_HEARTBEAT_NOTIFY", EchoReply(7));
  CMsgSerializer message(u"CMDHLV2_HEARTBEAT_NOTIFY");
  ser::WriteU32(message, 1);
  const std::u16string identifier = message.Identifier();
  ASSERT_TRUE(cmdal2_SendAndRecv(message, identifier.c_str()));
  int32_t number = 0;
  std::u16string echoed;
  ASSERT_TRUE(ser::ReadI32(message, &number));
  ASSERT_TRUE(ser::ReadWString(message, &echoed));
  EXPECT_EQ(number, 7);
  EXPECT_EQ(echoed, identifier) << "the service answered on the pipe named by the identifier";
}

struct FaultCase {
  const char* label;
  ReplyKind kind;
  std::size_t truncateAt;
  uint32_t delayMs;
  bool succeeds;
};

class RoundTripFaults : public WithServicePeer, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(RoundTripFaults, EndInAResultNeverAHang) {
  const FaultCase& c = GetParam();
  Reply reply = EchoReply(5);
  reply.kind = c.kind;
  reply.truncateAt = c.truncateAt;
  reply.delayMs = c.delayMs;
  peer_.Script(u"CMDHLV2_CHECK_CLIENT_EXIST", reply);
  CMsgSerializer message(u"CMDHLV2_CHECK_CLIENT_EXIST");
  ser::WriteWString(message, u"uid");
  auto start = Clock::now();
  bool ok = cmdal2_SendAndRecv(message, message.Identifier().c_str());
  auto elapsed = Clock::now() - start;
  EXPECT_EQ(ok, c.succeeds);
  EXPECT_LT(elapsed, std::chrono::milliseconds(kTestReplyTimeoutMs + 3000)) << "bounded by the reply time-out";
  if (ok) {
    int32_t number = 0;
    EXPECT_TRUE(ser::ReadI32(message, &number));
    EXPECT_EQ(number, 5);
  }
}

void PrintTo(const FaultCase& c, std::ostream* os) { *os << c.label; }

INSTANTIATE_TEST_SUITE_P(Table, RoundTripFaults,
                         ::testing::Values(FaultCase{"silent_service", ReplyKind::kSilence, 0, 0, false},
                                           FaultCase{"garbage", ReplyKind::kGarbage, 0, 0, false},
                                           FaultCase{"cut_in_the_prologue", ReplyKind::kTruncated, 30, 0, false},
                                           FaultCase{"cut_after_the_prologue", ReplyKind::kTruncated, 1000, 0, true},
                                           FaultCase{"closed_at_once", ReplyKind::kCloseAtOnce, 0, 0, false},
                                           FaultCase{"slow_but_in_time", ReplyKind::kReply, 0, 300, true},
                                           FaultCase{"too_slow", ReplyKind::kReply, 0, 4000, false}),
                         [](const auto& param_info) { return std::string(param_info.param.label); });

TEST_F(Channel, ConcurrentRoundTripsEachGetTheirOwnReply) {
  peer_.Script(u"CMDHLV2_HEARTBEAT_NOTIFY", EchoReply(3));
  std::atomic<int> matched{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([&, t] {
      // Half the threads keep their round trips' event and timer, as pool
      // workers do; the others make them per round trip.
      std::optional<ThreadRoundTripObjects> kept;
      if (t % 2 == 0) kept.emplace();
      for (int i = 0; i < 4; ++i) {
        CMsgSerializer message(u"CMDHLV2_HEARTBEAT_NOTIFY");
        const std::u16string identifier = message.Identifier();
        if (!cmdal2_SendAndRecv(message, identifier.c_str())) continue;
        int32_t number = 0;
        std::u16string echoed;
        if (ser::ReadI32(message, &number) && ser::ReadWString(message, &echoed) && echoed == identifier) ++matched;
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(matched.load(), 24);
}

// A thread's kept timer carries nothing over: after a round trip that ran
// out of time, the next one waits its full time again and gets its own
// reply, not the late one.
TEST_F(Channel, AKeptTimerStartsAfreshForEachRoundTrip) {
  Reply late = EchoReply(1);
  late.delayMs = kTestReplyTimeoutMs + 500;
  peer_.Script(u"CMDHLV2_CHECK_CLIENT_EXIST", late);
  Reply slow = EchoReply(2);
  slow.delayMs = kTestReplyTimeoutMs / 2;
  peer_.Script(u"CMDHLV2_HEARTBEAT_NOTIFY", slow);
  ThreadRoundTripObjects kept;
  CMsgSerializer first(u"CMDHLV2_CHECK_CLIENT_EXIST");
  EXPECT_FALSE(cmdal2_SendAndRecv(first, first.Identifier().c_str()));
  for (int i = 0; i < 2; ++i) {
    CMsgSerializer next(u"CMDHLV2_HEARTBEAT_NOTIFY");
    ASSERT_TRUE(cmdal2_SendAndRecv(next, next.Identifier().c_str())) << "round trip " << i;
    int32_t number = 0;
    ASSERT_TRUE(ser::ReadI32(next, &number));
    EXPECT_EQ(number, 2);
  }
}

TEST_F(Channel, FileBackedMessageIsReadFromItsFileAndTheFileRemoved) {
  ScopedServerFolder folder;
  CMsgSerializer message(u"CMDHLV2_SET_LOG_COMMON");
  std::vector<uint8_t> big(3 * 1024 * 1024);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<uint8_t>(i % 251);
  ser::WriteBlock(message, big.data(), static_cast<uint32_t>(big.size()));
  ser::WriteU32(message, 12345);
  ASSERT_TRUE(cmdal2_Send(message));
  auto received = peer_.WaitFor(1);
  ASSERT_EQ(received.size(), 1u);
  const auto& m = received[0].message;
  ASSERT_TRUE(m.ok) << m.error;
  EXPECT_TRUE(m.fileBacked);
  ASSERT_EQ(m.fields.size(), 2u);
  EXPECT_EQ(m.fields[0], big);
  EXPECT_EQ(peer::AsU32(m.fields[1]), 12345u);
  EXPECT_EQ(folder.SpillFiles(), 0) << "the service deleted it after reading";
}

TEST_F(Channel, NotificationsGoToTheirOwnPipes) {
  ocl_RefreshCertInfo(u"certificate refresh");
  ocl_RefreshCertInfo(nullptr);
  CMsgSerializer log(u"VG_ADD_VGCLOGMSG");
  ser::WriteWString(log, u"threat");
  ASSERT_TRUE(ocl_SendToThreatLogServer(log));
  EXPECT_GT(log.GetSize(), 0u) << "the notification senders keep their bytes";
  auto received = peer_.WaitFor(3);
  ASSERT_EQ(received.size(), 3u);
  int refreshes = 0;
  for (const auto& r : received) {
    ASSERT_TRUE(r.message.ok);
    if (r.message.command == u"VG_REFRESH_CERT_INFO") {
      ++refreshes;
      EXPECT_EQ(r.pipe, u"VgcServerNamePipe");
      ASSERT_EQ(r.message.fields.size(), 1u);
      const std::u16string text = peer::AsWString(r.message.fields[0]);
      EXPECT_TRUE(text == u"certificate refresh" || text.empty());
      EXPECT_EQ(r.message.fields[0].size(), (text.size() + 1) * 2);
    } else {
      EXPECT_EQ(r.pipe, u"VgcThreatLogServerNamePipe");
      EXPECT_EQ(r.message.command, u"VG_ADD_VGCLOGMSG");
    }
  }
  EXPECT_EQ(refreshes, 2);
}

TEST(ChannelWithoutService, SendsFailAtOnceWithTheReasonTraced) {
  ScopedServerFolder folder;
  TraceCapture capture;
  SetChannelReplyTimeoutMs(1500);
  auto start = Clock::now();
  CMsgSerializer oneWay(u"CMDHLV2_CLN_ON_START");
  EXPECT_FALSE(cmdal2_Send(oneWay));
  CMsgSerializer roundTrip(u"CMDHLV2_HEARTBEAT_NOTIFY");
  EXPECT_FALSE(cmdal2_SendAndRecv(roundTrip, roundTrip.Identifier().c_str()));
  CMsgSerializer spilled(u"CMDHLV2_SET_VIRUS_LOG", 2);
  ser::WriteU32(spilled, 1);
  EXPECT_FALSE(cmdal2_Send(spilled));
  CMsgSerializer notify(u"VG_ADD_VGCLOGMSG");
  EXPECT_FALSE(ocl_SendToThreatLogServer(notify));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
  SetChannelReplyTimeoutMs(0);
  EXPECT_EQ(capture.Count("init pipe client [Vanta Labs VGCR Command Handler Manager] failed! err=[2]"), 2);
  EXPECT_EQ(capture.Count("[PipeSendAndRecvW] Initial pipe client failed! err=2"), 1);
  EXPECT_EQ(capture.Count("Initial pipe client failed! err=2"), 2);
}

TEST(ChannelWithoutService, AnUndeliveredSpillFileIsNotLeftBehind) {
  ScopedServerFolder folder;
  {
    CMsgSerializer spilled(u"CMDHLV2_SET_VIRUS_LOG", 2);
    ser::WriteU32(spilled, 1);
    EXPECT_EQ(folder.SpillFiles(), 1);
    EXPECT_FALSE(cmdal2_Send(spilled));
  }
  EXPECT_EQ(folder.SpillFiles(), 0);
}

}  // namespace
