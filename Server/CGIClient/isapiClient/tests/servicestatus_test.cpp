// The service status report (103).
#include "handler_fixture.h"

namespace {

// Known and unknown clients (1 and -39) are checked against the real service
// in the system tests; here: the mask, its trace line, and a silent service.
TEST_F(Handlers, ProtectionStatusMaskAndASilentService) {
  peer::Reply known;
  known.make = [](const peer::Received& r) {
    return peer::Builder().Prologue(r.message.command, r.message.identifier).U32(1).bytes();
  };
  peer_.Script(u"CMDHLV2_CLN_ON_PROTECTION_STATUS", known);
  TraceCapture capture;
  EXPECT_EQ(Get(std::string("requestid=103&functiontype=3&uid=") + kUid + "&av=2&fw=1&ccsf=-1").body, "1");
  const auto fields = OnlyMessage(u"CMDHLV2_CLN_ON_PROTECTION_STATUS");
  ASSERT_EQ(fields.size(), 2u);
  EXPECT_EQ(peer::AsU32(fields[1]), 1u | 16u | 256u);
  EXPECT_EQ(capture.Count("AV=1, AS=0, WR=0, AT_OFFICE=0, FW=1, AEGIS=0, DLP=0, NCIE=0, CCSF=1"), 1);
  peer_.Clear();
  capture.Clear();
  EXPECT_EQ(Get(std::string("requestid=103&functiontype=3&uid=") + kUid).body, "1");
  const auto none = OnlyMessage(u"CMDHLV2_CLN_ON_PROTECTION_STATUS");
  ASSERT_EQ(none.size(), 2u);
  EXPECT_EQ(peer::AsU32(none[1]), 0u) << "no component keys: mask 0";
  EXPECT_EQ(capture.Count("AV=0, AS=0, WR=0, AT_OFFICE=0, FW=0, AEGIS=0, DLP=0, NCIE=0, CCSF=0"), 1);
  peer::Reply silent;
  silent.kind = peer::ReplyKind::kSilence;
  peer_.Script(u"CMDHLV2_CLN_ON_PROTECTION_STATUS", silent);
  EXPECT_EQ(Get(std::string("requestid=103&functiontype=3&uid=") + kUid).body, "-5");
}

TEST_F(Handlers, ServiceStatusFunctionTypes) {
  const std::string base = std::string("requestid=103&uid=") + kUid;
  EXPECT_EQ(Get(base + "&functiontype=1&scheduleupdatestatus=1").body, "-5") << "type 1 always fails";
  EXPECT_EQ(Get(base + "&functiontype=2&enablewarningflag=9").body, "1");
  EXPECT_EQ(Get(base + "&functiontype=4").body, "-7") << "no release: told in the reply";
  EXPECT_EQ(Get(base + "&functiontype=4&release=14.0").body, "1");
  EXPECT_EQ(Get(base + "&functiontype=5").body, "-3");
  EXPECT_EQ(Get("requestid=103&functiontype=2&uid=not-a-guid").body, "-6");
  auto received = peer_.WaitFor(3);
  ASSERT_EQ(received.size(), 3u) << "the two setters and one removal";
  // Each pipe connection is recorded when it closes: the order may vary.
  auto find = [&received](const std::u16string& command) -> const peer::Received& {
    for (const auto& r : received) {
      if (r.Command() == command) return r;
    }
    return received.front();
  };
  EXPECT_EQ(find(u"CMDHL_SET_CLIENTCFG_SU_STATUS").text,
            (std::vector<std::u16string>{u"CMDHL_SET_CLIENTCFG_SU_STATUS", plat::Widen(kUid), u"1"}));
  EXPECT_EQ(find(u"CMDHL_SET_CLIENTCFG_WARNING_SETTING").text,
            (std::vector<std::u16string>{u"CMDHL_SET_CLIENTCFG_WARNING_SETTING", plat::Widen(kUid), u"9"}));
  const peer::Received& removal = find(u"CMDHLV2_CLN_REMOVE_CONFIG_REC");
  ASSERT_EQ(removal.message.command, u"CMDHLV2_CLN_REMOVE_CONFIG_REC");
  const peer::Bytes& block = removal.message.fields[0];
  EXPECT_EQ(U32At(block, 0), 115u);
  EXPECT_EQ(TextAt(block, 78, 16), u"14.0");
}

}  // namespace
