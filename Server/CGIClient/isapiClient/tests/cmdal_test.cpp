#include "channel/cmdal_CmdAPI.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "channel_fixture.h"
#include "platform/text.h"
#include "trace_sink.h"

namespace {

constexpr char16_t kUid[] = u"3F2504E0-4F89-11D3-9A0C-0305E82C3301";

struct Call {
  const char16_t* command;
  // Calls the member; a reader's text lands in *out.
  std::function<bool(std::u16string* out)> run;
  // The arguments expected after the command name (and the reply pipe).
  std::vector<std::u16string> arguments;
};

// Every setter, and a reader of each argument shape; each reader's own
// arguments are checked through the settings requests that send it.
std::vector<Call> Commands() {
  const int32_t counts[6] = {1, 2, 3, 40, 50, 60};
  const uint32_t warning = 0x11;
  auto reader = [](bool (*fn)(const char16_t*, std::u16string*)) {
    return [fn](std::u16string* out) { return fn(kUid, out); };
  };
  auto readerRelease = [](bool (*fn)(const char16_t*, const char16_t*, std::u16string*)) {
    return [fn](std::u16string* out) { return fn(kUid, u"6.0.1", out); };
  };
  auto setter = [](bool (*fn)(const char16_t*, const char16_t*)) {
    return [fn](std::u16string*) { return fn(kUid, u"[Config]\r\nKey=1"); };
  };
  const std::vector<std::u16string> uid = {kUid};
  const std::vector<std::u16string> uidRelease = {kUid, u"6.0.1"};
  const std::vector<std::u16string> uidConfig = {kUid, u"[Config]\r\nKey=1"};
  return {
      {u"CMDHL_GET_MS_CFG", reader(cmdal_GetMsCfg), uid},
      {u"CMDHL_SET_MS_CFG", setter(cmdal_SetMsCfg), uidConfig},
      {u"CMDHL_SET_MS_CFG_EX", setter(cmdal_SetMsCfgEx), uidConfig},
      {u"CMDHL_SET_RT_CFG", setter(cmdal_SetRtCfg), uidConfig},
      {u"CMDHL_SET_RT_CFG_EX", setter(cmdal_SetRtCfgEx), uidConfig},
      {u"CMDHL_SET_PS_CFG", setter(cmdal_SetPsCfg), uidConfig},
      {u"CMDHL_SET_PS_CFG_EX", setter(cmdal_SetPsCfgEx), uidConfig},
      {u"CMDHL_SET_SPY_MS_CFG", setter(cmdal_SetSpyMsCfg), uidConfig},
      {u"CMDHL_SET_SPY_RT_CFG", setter(cmdal_SetSpyRtCfg), uidConfig},
      {u"CMDHL_SET_SPY_PS_CFG", setter(cmdal_SetSpyPsCfg), uidConfig},
      {u"CMDHL_SET_CLIENTCFG_SU_STATUS", [](std::u16string*) { return cmdal_SetClinetCfg_SUStatus(kUid, true); },
       {kUid, u"1"}},
      {u"CMDHL_SET_CLIENTCFG_WARNING_SETTING",
       [warning](std::u16string*) { return cmdal_SetClinetCfg_WarningSetting(kUid, &warning); }, {kUid, u"17"}},
      {u"CMDHL_GET_INI_CRITICAL", readerRelease(cmdal_GetIniCritical), uidRelease},
      {u"CMDHL_IS_CONFIGFLAGSET",
       [](std::u16string* out) {
         bool set = false;
         bool ok = cmdal_IsConfigFlagSet(kUid, 0x1000, &set);
         *out = set ? u"reply for CMDHL_IS_CONFIGFLAGSET" : u"not set";
         return ok;
       },
       {kUid, u"4096"}},
      {u"CMDHL_CMDHL_GET_CLN_ALERT_MSG", [](std::u16string* out) { return cmdal_GetClnAlertMsg(kUid, 128, out); },
       {kUid, u"128"}},
      {u"CMDHL_PFW_SET_POLICY_ID", [](std::u16string*) { return cmdal_PfwSetPolicyId(kUid, 9); }, {kUid, u"9"}},
      {u"CMDHL_PFW_UPDATE_CFW_COUNT",
       [counts](std::u16string*) { return cmdal_PfwUpdateCfwCount(kUid, 0, counts, u"fw", 1); },
       {kUid, u"0", u"1", u"2", u"3", u"40", u"50", u"60", u"fw", u"1"}},
      {u"CMDHL_SET_STATFLAG", [](std::u16string*) { return cmdal_SetStatFlag(kUid, 4); }, {kUid, u"4"}},
      {u"CMDHL_GET_PRODUCT_INFO", [](std::u16string* out) { return cmdal_GetProductInfo(out); }, {}},
  };
}

class Cmdal : public WithServicePeer {};

TEST_F(Cmdal, MembersSendTheirTextAndReadersGetTheirReply) {
  const std::vector<Call> calls = Commands();
  std::set<std::u16string> listed;
  for (const CmdalCommand& c : kCmdalCommands) listed.insert(c.name);
  for (const Call& call : calls) {
    const std::u16string command = call.command;
    ASSERT_TRUE(listed.count(command)) << plat::ToUtf8(command);
    bool reader = false;
    for (const CmdalCommand& c : kCmdalCommands) reader |= command == c.name && c.reader;
    const std::u16string answer = command == u"CMDHL_IS_CONFIGFLAGSET" ? u"1" : u"reply for " + command;
    peer::Reply reply;
    reply.bytes = peer::TextBytes(answer);
    peer_.Script(command, reply);
    peer_.Clear();

    std::u16string out;
    ASSERT_TRUE(call.run(&out)) << plat::ToUtf8(command);
    auto received = peer_.WaitFor(1);
    ASSERT_EQ(received.size(), 1u) << plat::ToUtf8(command);
    const peer::Received& r = received[0];
    EXPECT_FALSE(r.version2);
    EXPECT_EQ(r.bytes.size() % 2, 0u);
    ASSERT_GE(r.bytes.size(), 2u);
    EXPECT_FALSE(r.bytes[r.bytes.size() - 2] == 0 && r.bytes.back() == 0) << "sent without a terminator";
    std::vector<std::u16string> expected = {command};
    if (reader) expected.push_back(r.ReplyPipe());
    expected.insert(expected.end(), call.arguments.begin(), call.arguments.end());
    EXPECT_EQ(r.text, expected) << plat::ToUtf8(command);
    if (reader) {
      EXPECT_EQ(r.ReplyPipe().rfind(u"0105" + command, 0), 0u) << "reply pipe goes first";
      EXPECT_EQ(out, u"reply for " + command);
    }
  }
}

TEST_F(Cmdal, ReplyLongerThanOnePieceIsJoinedWithoutLoss) {
  std::u16string longText;
  for (int i = 0; i < 3000; ++i) longText += static_cast<char16_t>(u'A' + i % 26);
  peer::Reply reply;
  reply.bytes = peer::TextBytes(longText);
  peer_.Script(u"CMDHL_GET_CLIENT_ALL_SETTING", reply);
  std::u16string out;
  ASSERT_TRUE(cmdal_GetClientAllSetting(kUid, u"6.0", &out));
  EXPECT_EQ(out, longText);
}

TEST_F(Cmdal, EmptyReplyIsAnEmptyTextAndSilenceIsAFailure) {
  peer::Reply empty;
  empty.kind = peer::ReplyKind::kCloseAtOnce;
  peer_.Script(u"CMDHL_GET_OPPSETTING", empty);
  std::u16string out = u"stale";
  EXPECT_TRUE(cmdal_GetOppSetting(kUid, &out));
  EXPECT_EQ(out, u"");

  peer::Reply silence;
  silence.kind = peer::ReplyKind::kSilence;
  peer_.Script(u"CMDHL_GET_MS_CFG", silence);
  EXPECT_FALSE(cmdal_GetMsCfg(kUid, &out));
}

TEST_F(Cmdal, WarningSetterTracesItsValueAndResult) {
  TraceCapture capture;
  const uint32_t value = 0xABC;
  EXPECT_TRUE(cmdal_SetClinetCfg_WarningSetting(kUid, &value));
  EXPECT_EQ(capture.Count("[cmdal_SetClinetCfg_WarningSetting]set privilege dwEnableWarningSetting:[00000abc]"), 1);
  EXPECT_EQ(capture.Count("[cmdal_SetClinetCfg_WarningSetting] result:[1]"), 1);
}

}  // namespace
