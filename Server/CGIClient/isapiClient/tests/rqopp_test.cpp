// The OPP request (203): the report record of types 1 and 2, the fetch of
// type 0 with and without chkdatabase, the results.
#include "settings_fixture.h"

namespace {

using isapi::Response;

class RqOpp : public SettingsRequests {};

TEST_F(RqOpp, TypesOneAndTwoReportOneWayAndAnswerOne) {
  for (const auto& [type, operation] : {std::pair{1, 52u}, std::pair{2, 53u}}) {
    peer_.Clear();
    EXPECT_EQ(Get(Query(203, std::to_string(type)) + ".1").body, "1");
    const auto fields = OnlyMessage(u"CMDHLV2_CLN_ACTIVE_RESTORE_OPP");
    ASSERT_EQ(fields.size(), 3u);
    EXPECT_EQ(peer::AsU32(fields[0]), operation);
    peer::Bytes uid(kUid, kUid + 36);
    uid.push_back(0);
    EXPECT_EQ(fields[1], uid) << "narrow uid in a 37-byte field";
    EXPECT_EQ(fields[2], (peer::Bytes{'1', '4', '.', '0', '.', '1', 0, 0})) << "narrow release in 8 bytes";
  }
  peer_.Stop();
  EXPECT_EQ(Get(Query(203, "2")).body, "1") << "the outcome of the send is not looked at";
}

TEST_F(RqOpp, TypeZeroFetchesAndResetsEvent50) {
  TraceCapture capture;
  EXPECT_EQ(Get(Query(203, "0")).body, NarrowTextOf(u"CMDHL_GET_OPPSETTING"));
  const auto received = peer_.WaitFor(2);
  EXPECT_EQ(RemovedEvent(received), 50u);
  EXPECT_EQ(Find(received, u"CMDHL_IS_CONFIGFLAGSET"), nullptr) << "no chkdatabase, no question";
  EXPECT_EQ(LinesOf(capture, "[ProcessRqOpp]").back(), "[ProcessRqOpp] Leave successfully");
}

TEST_F(RqOpp, ChkDatabaseOneFetchesOnlyAfterAFlaggedChange) {
  peer_.Script(u"CMDHL_IS_CONFIGFLAGSET", TextAnswer(u"0"));
  TraceCapture capture;
  const Response unchanged = Get(Query(203, "0") + "&chkdatabase=1");
  EXPECT_EQ(unchanged.body, "-8");
  auto received = peer_.WaitFor(2, 300);
  ASSERT_EQ(received.size(), 1u) << "nothing fetched, nothing reset";
  EXPECT_EQ(std::vector<std::u16string>(received[0].text.begin() + 2, received[0].text.end()),
            Fields({plat::Widen(kUid), u"4096"}));
  EXPECT_EQ(capture.Count("[ProcessRqOpp] No need to check DB"), 1);
  EXPECT_EQ(capture.Count("[ProcessRqOpp] Leave due error(-8)"), 1);

  peer_.Script(u"CMDHL_IS_CONFIGFLAGSET", TextAnswer(u"1"));
  peer_.Clear();
  EXPECT_EQ(Get(Query(203, "0") + "&chkdatabase=1").body, NarrowTextOf(u"CMDHL_GET_OPPSETTING"));
  EXPECT_EQ(RemovedEvent(peer_.WaitFor(3)), 50u);

  peer_.Script(u"CMDHL_IS_CONFIGFLAGSET", TextAnswer(u"0"));
  for (const char* value : {"0", "2", "abc", ""}) {
    peer_.Clear();
    EXPECT_EQ(Get(Query(203, "0") + "&chkdatabase=" + value).body, NarrowTextOf(u"CMDHL_GET_OPPSETTING")) << value;
    EXPECT_EQ(Find(peer_.WaitFor(2), u"CMDHL_IS_CONFIGFLAGSET"), nullptr) << "only 1 asks";
  }
}

TEST_F(RqOpp, Results) {
  for (const char* type : {"3", "-1"}) EXPECT_EQ(Get(Query(203, type)).body, "-3") << type;
  SetChannelReplyTimeoutMs(300);
  peer_.Script(u"CMDHL_GET_OPPSETTING", Answer(peer::ReplyKind::kSilence));
  peer_.Clear();
  EXPECT_EQ(Get(Query(203, "0")).body, "-5");
  EXPECT_EQ(RemovedEvent(peer_.WaitFor(2, 300)), 0u);
}

}  // namespace
