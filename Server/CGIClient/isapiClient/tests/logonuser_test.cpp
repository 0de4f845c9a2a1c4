// The logon user report (112).
#include "handler_fixture.h"

namespace {

using isapi::Response;

TEST_F(Handlers, LogonUserSendsThreeMembers) {
  Response response = Get(std::string("requestid=112&functiontype=1&uid=") + kUid + "&LogonUser=CORP%5Cbob");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, "");
  const auto fields = OnlyMessage(u"CMDHLV2_CLN_ON_LOGON_USER");
  ASSERT_EQ(fields.size(), 3u);
  EXPECT_EQ(peer::AsWString(fields[0]), plat::Widen(kUid));
  EXPECT_EQ(peer::AsWString(fields[1]), u"CORP\\bob");
  EXPECT_EQ(fields[2], (peer::Bytes{0, 0})) << "an absent member is the NUL alone";
  peer_.Clear();
  EXPECT_EQ(Get(std::string("requestid=112&functiontype=1&uid=") + kUid).body, "");
  const auto neither = OnlyMessage(u"CMDHLV2_CLN_ON_LOGON_USER");
  ASSERT_EQ(neither.size(), 3u);
  EXPECT_EQ(neither[1], (peer::Bytes{0, 0}));
  EXPECT_EQ(neither[2], (peer::Bytes{0, 0}));
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

}  // namespace
