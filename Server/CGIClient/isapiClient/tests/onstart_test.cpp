// The start registration (101): the block at its offsets, the required
// keys, a service that cannot be reached, a reply that cannot be signed.
#include <set>

#include "handler_fixture.h"
#include "host/rsp_Reply.h"

namespace {

using isapi::Response;

std::string Registration(const std::string& extra = "", bool withRelease = true) {
  std::string q = std::string("requestid=101&uid=") + kUid + "&clienttype=3&date=20261122&time=031500&computer=" +
                  std::string(120, 'C') + "&platform=Windows%2011&ip=10.0.0.7&program=14.0&buildnum=2150" +
                  "&timezone=-480&engine=22.1&domain=CORP&hotfix=KB1&instdate=20260101&insttime=120000";
  if (withRelease) q += "&release=14.0.1";
  return q + extra;
}

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
