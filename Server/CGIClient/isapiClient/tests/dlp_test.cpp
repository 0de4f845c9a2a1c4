// The DLP settings request (321): function type 1 only, the reset of 118
// before the reply, the results and their trace lines.
#include <cstdlib>

#include "settings_fixture.h"

namespace {

class Dlp : public SettingsRequests {
 protected:
  void SetUp() override {
    SettingsRequests::SetUp();
    peer_.Script(u"CMDHLV2_GET_DLP_DEPLOY_SETTINGS", Settings(u"[DLP]\r\nDeploy=1"));
  }
  static peer::Reply Settings(const std::u16string& text) {
    return MessageAnswer([text](peer::Builder& b) { b.WString(text); });
  }
};

TEST_F(Dlp, TypeOneAnswersTheSettingsAndResetsEvent118) {
  TraceCapture capture;
  EXPECT_EQ(Get(Query(321, "1")).body, "[DLP]\r\nDeploy=1");
  const auto received = peer_.WaitFor(2);
  const peer::Received* ask = Find(received, u"CMDHLV2_GET_DLP_DEPLOY_SETTINGS");
  ASSERT_NE(ask, nullptr);
  ASSERT_EQ(ask->message.fields.size(), 1u);
  EXPECT_EQ(ask->message.fields[0], peer::TextBytes(plat::Widen(kUid) + u'\0'));
  EXPECT_EQ(RemovedEvent(received), 118u);
  EXPECT_EQ(LinesOf(capture, "[ProcessDLP]"),
            (std::vector<std::string>{"[ProcessDLP] Enter >>", std::string("[ProcessDLP] Uid = ") + kUid,
                                      "[ProcessDLP] Leave <<"}));
  peer_.Script(u"CMDHLV2_GET_DLP_DEPLOY_SETTINGS", Settings(u""));
  EXPECT_EQ(Get(Query(321, "1")).body, "");
}

TEST_F(Dlp, OtherTypesAreRefusedAtOnceWithoutALeaveLine) {
  for (const char* type : {"0", "2", "-1", "abc"}) {
    TraceCapture capture;
    EXPECT_EQ(Get(Query(321, type)).body, "-3") << type;
    const auto lines = LinesOf(capture, "[ProcessDLP]");
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), "[ProcessDLP] functionID = " + std::to_string(std::atoi(type))) << type;
  }
  EXPECT_TRUE(peer_.WaitFor(1, 200).empty());
}

TEST_F(Dlp, Results) {
  EXPECT_EQ(Get(std::string("requestid=321&functiontype=2&uid=") + kUid).body, "-7") << "before the type is looked at";
  SetChannelReplyTimeoutMs(300);
  peer_.Script(u"CMDHLV2_GET_DLP_DEPLOY_SETTINGS", Answer(peer::ReplyKind::kSilence));
  TraceCapture capture;
  EXPECT_EQ(Get(Query(321, "1")).body, "-5");
  EXPECT_EQ(LinesOf(capture, "[ProcessDLP]").back(), "[ProcessDLP] Leave error(-5)");
  EXPECT_EQ(RemovedEvent(peer_.WaitFor(2, 300)), 0u);

  // An answer without its text: the reset has gone out, the client gets -5.
  peer_.Script(u"CMDHLV2_GET_DLP_DEPLOY_SETTINGS", MessageAnswer([](peer::Builder&) {}));
  peer_.Clear();
  EXPECT_EQ(Get(Query(321, "1")).body, "-5");
  EXPECT_EQ(RemovedEvent(peer_.WaitFor(2)), 118u);
}

}  // namespace
