// The client lifecycle handlers through the dispatcher, against the test peer.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "channel_fixture.h"
#include "handlers/isapi_OnStart.h"
#include "handlers/isapi_PollingSetting.h"
#include "host/rsp_Reply.h"
#include "inprocess_host.h"
#include "platform/text.h"
#include "trace_sink.h"

namespace {

using isapi::Response;

constexpr char kUid[] = "3F2504E0-4F89-11D3-9A0C-0305E82C3301";

class Handlers : public WithServicePeer {
 protected:
  static void SetUpTestSuite() {
    HSE_VERSION_INFO version{};
    ASSERT_TRUE(LinkedEntryPoints().getExtensionVersion(&version));
  }
  static void TearDownTestSuite() { LinkedEntryPoints().terminateExtension(HSE_TERM_MUST_UNLOAD); }
  Response Get(const std::string& query) { return host_.Send(InProcessHost::Get(query)); }
  InProcessHost host_{LinkedEntryPoints()};
};

std::u16string TextAt(const peer::Bytes& block, std::size_t offset, std::size_t bytes) {
  return peer::AsWString(peer::Bytes(block.begin() + static_cast<std::ptrdiff_t>(offset),
                                     block.begin() + static_cast<std::ptrdiff_t>(offset + bytes)));
}
uint32_t U32At(const peer::Bytes& block, std::size_t offset) {
  return peer::AsU32(peer::Bytes(block.begin() + static_cast<std::ptrdiff_t>(offset),
                                 block.begin() + static_cast<std::ptrdiff_t>(offset + 4)));
}
unsigned U16At(const peer::Bytes& block, std::size_t offset) { return block[offset] | block[offset + 1] << 8; }

std::string Registration(const std::string& extra = "", bool withRelease = true) {
  std::string q = std::string("requestid=101&uid=") + kUid + "&clienttype=3&date=20261122&time=031500&computer=" +
                  std::string(120, 'C') + "&platform=Windows%2011&ip=10.0.0.7&program=14.0&buildnum=2150" +
                  "&timezone=-480&engine=22.1&domain=CORP&hotfix=KB1&instdate=20260101&insttime=120000";
  if (withRelease) q += "&release=14.0.1";
  return q + extra;
}

// ------------------------------------------------------------ start (101)

TEST_F(Handlers, ARegistrationArrivesAsOneBlockAtItsOffsets) {
  TraceCapture capture;
  Response response = Get(Registration("&clientlistenport=70000&ncie_rr_ver=0&ncie_cnp_ver=00&LogonUser=CORP%5Cann"
                                       "&computer_extra=1&reboot=1&SystemModel=7&addistinguishedname=CN%3Dann"));
  ASSERT_EQ(response.body.size(), 12u) << response.body;
  EXPECT_EQ(response.body.substr(0, 2), "1\n");
  const auto fields = OnlyMessage(u"CMDHLV2_CLN_ON_START");
  ASSERT_EQ(fields.size(), 1u);
  const peer::Bytes& b = fields[0];
  ASSERT_EQ(b.size(), 17412u);
  EXPECT_EQ(U32At(b, 0), 1u) << "format version";
  EXPECT_EQ(U16At(b, 4), 3u) << "clienttype";
  EXPECT_EQ(TextAt(b, 6, 74), plat::Widen(kUid));
  EXPECT_EQ(TextAt(b, 112, 242), std::u16string(120, u'C')) << "120 characters stored whole";
  EXPECT_EQ(TextAt(b, 354, 5002), u"CORP");
  EXPECT_EQ(TextAt(b, 5356, 46), u"Windows 11");
  EXPECT_EQ(TextAt(b, 6418, 16), u"14.0.1");
  EXPECT_EQ(U32At(b, 12308), 2150u) << "buildnum";
  EXPECT_EQ(U32At(b, 12312), 0xFFFFFE20u) << "timezone -480, two's complement";
  EXPECT_EQ(U16At(b, 6806), 4464u) << "clientlistenport 70000 cut to 16 bits";
  EXPECT_EQ(TextAt(b, 14548, 42), u"") << "ncie_rr_ver=0 is not stored";
  EXPECT_EQ(TextAt(b, 14506, 42), u"00");
  EXPECT_EQ(TextAt(b, 14590, 514), u"CORP\\ann");
  EXPECT_EQ(TextAt(b, 7306, 5002), u"CN=ann");
  EXPECT_EQ(b[17408], 1) << "reboot";
  EXPECT_EQ(U32At(b, 17404), 7u) << "SystemModel";
  for (std::size_t i = 5806; i < 6326; ++i) ASSERT_EQ(b[i], 0) << "reserved at " << i;
  EXPECT_EQ(capture.Count("ProcessOnStart - NCIE_RR_VERSION ver: [0]"), 1) << "logged though not stored";
  EXPECT_EQ(capture.Count("ProcessOnStart - BEP_PTN=0, SAL_PTN=0"), 1) << "written always";
  EXPECT_EQ(capture.Count("ProcessOnStart - System Model=[7]"), 1);
  EXPECT_EQ(capture.Count("ProcessOnStart - domain(CORP)"), 1);
}

TEST_F(Handlers, ARegistrationMissingARequiredKeyEndsSilently) {
  struct Case {
    std::string query;
    std::string reply;
  };
  std::string uid37 = Registration();
  uid37.replace(uid37.find(kUid), 36, std::string(37, 'A'));
  const Case cases[] = {
      {"requestid=101", "-6"},
      {uid37, "-6"},
      {Registration("", false), "-7"},
      {"requestid=101&uid=" + std::string(kUid) + "&date=202611220", "-11"},
      {Registration() + "&domain=CO%01RP", "-14"},
      {Registration() + "&engine=" + std::string(21, 'e'), "-25"},
  };
  for (const Case& c : cases) EXPECT_EQ(Get(c.query).body, c.reply) << c.query.substr(0, 80);
  EXPECT_TRUE(peer_.All().empty()) << "nothing sent";
}

TEST(HandlersWithoutService, ARegistrationThatCannotBeDeliveredIsMinus5) {
  HSE_VERSION_INFO version{};
  ASSERT_TRUE(LinkedEntryPoints().getExtensionVersion(&version));
  InProcessHost host(LinkedEntryPoints());
  EXPECT_EQ(host.Send(InProcessHost::Get(Registration())).body, "-5");
  EXPECT_EQ(host.Send(InProcessHost::Get(std::string("requestid=207&functiontype=1&uid=") + kUid)).body, "-5");
  LinkedEntryPoints().terminateExtension(HSE_TERM_MUST_UNLOAD);
}

// ------------------------------------------------------------ logon user (112)

TEST_F(Handlers, LogonUserSendsThreeMembers) {
  Response response = Get(std::string("requestid=112&functiontype=1&uid=") + kUid + "&LogonUser=CORP%5Cbob");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, "");
  const auto fields = OnlyMessage(u"CMDHLV2_CLN_ON_LOGON_USER");
  ASSERT_EQ(fields.size(), 3u);
  EXPECT_EQ(peer::AsWString(fields[0]), plat::Widen(kUid));
  EXPECT_EQ(peer::AsWString(fields[1]), u"CORP\\bob");
  EXPECT_EQ(fields[2], (peer::Bytes{0, 0})) << "an absent member is the NUL alone";
}

TEST_F(Handlers, LogonUserRefusals) {
  TraceCapture capture;
  EXPECT_EQ(Get("requestid=112&functiontype=1&uid=ZZZZZZZZ-4F89-11D3-9A0C-0305E82C3301").body, "-6");
  EXPECT_EQ(capture.Count("This is an invalid UID."), 1);
  capture.Clear();
  EXPECT_EQ(Get(std::string("requestid=112&functiontype=1&uid={") + kUid + "}").body, "-6");
  EXPECT_EQ(capture.Count("This is an invalid UID."), 0) << "too long: no log";
  EXPECT_EQ(Get(std::string("requestid=112&uid=") + kUid + "&LogonUser=x&LogonUsrUID=y").body, "-3");
  EXPECT_EQ(capture.Count("ProcessOnLogonUser - LogonUser GUID: [y]."), 1) << "details logged before -3";
  EXPECT_TRUE(peer_.All().empty());
  Get(std::string("requestid=112&functiontype=1&uid=") + kUid + "&LogonUser=" + std::string(257, 'u'));
  const auto fields = OnlyMessage(u"CMDHLV2_CLN_ON_LOGON_USER");
  ASSERT_EQ(fields.size(), 3u);
  EXPECT_EQ(peer::AsWString(fields[1]), u"") << "257 characters count as absent";
}

// ------------------------------------------------------------ service status (103)

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

// ------------------------------------------------------------ heartbeat (207)

peer::Reply HeartbeatReply(int32_t individual, int32_t messageId, int32_t sequence) {
  peer::Reply reply;
  reply.make = [=](const peer::Received& r) {
    peer::Bytes block = r.message.fields.at(0);
    for (auto [offset, value] : {std::pair<std::size_t, int32_t>{4, individual}, {8, messageId}, {12, sequence}}) {
      for (int i = 0; i < 4; ++i) block[offset + static_cast<std::size_t>(i)] = static_cast<uint8_t>(static_cast<uint32_t>(value) >> (8 * i));
    }
    return peer::Builder().Prologue(r.message.command, r.message.identifier).U32(77).Block(block).bytes();
  };
  return reply;
}

TEST_F(Handlers, AHeartbeatIsAnsweredWithThePollingResponse) {
  peer_.Script(u"CMDHLV2_HEARTBEAT_NOTIFY", HeartbeatReply(0, 12, 3));
  Response response = Get(std::string("requestid=207&functiontype=1&uid=") + kUid + "&DebugInfo=" +
                          std::string(512, 'd'));
  EXPECT_EQ(response.body, "[Polling_Response]\r\nRECEIVING_STATUS=1\r\nINDIVIDUAL_SETTING=0\r\nMESSAGE_ID=12\r\n"
                           "SETTING_SEQUENCE=3");
  EXPECT_EQ(response.Header("Content-Type"), "application/octet-stream");
  const auto fields = OnlyMessage(u"CMDHLV2_HEARTBEAT_NOTIFY");
  ASSERT_EQ(fields.size(), 1u);
  const peer::Bytes& block = fields[0];
  ASSERT_EQ(block.size(), 1128u);
  EXPECT_EQ(U32At(block, 0), 1u);
  EXPECT_EQ(TextAt(block, 28, 74), plat::Widen(kUid));
  EXPECT_EQ(TextAt(block, 102, 1024), std::u16string(511, u'd')) << "512 characters do not fit with a NUL";
  EXPECT_EQ(U16At(block, 102 + 2 * 511), 0u);

}

TEST_F(Handlers, HeartbeatFaults) {
  EXPECT_EQ(Get(std::string("requestid=207&uid=") + kUid).body, "-3");
  EXPECT_EQ(Get("requestid=207&functiontype=1&uid=xyz").body, "-6");
  peer::Reply garbage;
  garbage.kind = peer::ReplyKind::kGarbage;
  peer_.Script(u"CMDHLV2_HEARTBEAT_NOTIFY", garbage);
  EXPECT_EQ(Get(std::string("requestid=207&functiontype=1&uid=") + kUid).body, "-5");
  peer::Reply shortReply;
  shortReply.make = [](const peer::Received& r) {
    return peer::Builder().Prologue(r.message.command, r.message.identifier).U32(1).bytes();
  };
  peer_.Script(u"CMDHLV2_HEARTBEAT_NOTIFY", shortReply);
  EXPECT_EQ(Get(std::string("requestid=207&functiontype=1&uid=") + kUid).body, "-5") << "no record in the reply";
}

TEST(DomainString, IsCheckedForLengthAndControlCharacters) {
  const std::pair<std::string, bool> cases[] = {
      {"domain=CORP", true},          {"domain=", true},           {"x=1", false},
      {"domain=" + std::string(120, 'd'), true}, {"domain=" + std::string(121, 'd'), false},
      {"domain=a%09b", false},        {"domain=a%7Fb", false},     {"domain=caf%C3%A9", true},
      {"domain=a%C2%85b", false},     {"domain=%ED%A0%80", false},
  };
  for (const auto& [query, valid] : cases) {
    RequestParams params;
    params.Parse(query);
    std::u16string domain;
    EXPECT_EQ(CheckValidDomainString(params, &domain), valid) << query;
  }
}

}  // namespace

namespace {

// -49: the record went out but the reply could not be signed, so the client
// is told to back off (503) while the server already has the registration.
TEST_F(Handlers, ARegistrationWhoseReplyCannotBeSignedIs503AfterTheSend) {
  peer::Reply refused;
  refused.make = [](const peer::Received& r) {
    return peer::Builder().Prologue(r.message.command, r.message.identifier).I32(-1).WString(u"").U32(0).bytes();
  };
  peer_.Script(u"CMDHSAV2_DATA", refused);
  Response response = Get(Registration("&SA_ISR=CN%3Dx&SA_SN=01"));
  EXPECT_EQ(response.status, 503);
  auto received = peer_.WaitFor(2);
  ASSERT_EQ(received.size(), 2u);
  // The two pipes are served apart, so they may be recorded in either order.
  std::set<std::u16string> commands = {received[0].message.command, received[1].message.command};
  EXPECT_EQ(commands, (std::set<std::u16string>{u"CMDHLV2_CLN_ON_START", u"CMDHSAV2_DATA"}));
}

}  // namespace
