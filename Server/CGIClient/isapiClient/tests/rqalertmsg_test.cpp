// The alert message request (204): the kinds served, the empty uid, the
// results and their trace lines.
#include "settings_fixture.h"

namespace {

class RqAlertMsg : public SettingsRequests {};

TEST_F(RqAlertMsg, ServedKindsAskWithAnEmptyUidWhateverTheRequestCarries) {
  for (int kind : {0, 1, 3, 5, 7, 8, 12, 13, 128}) {
    peer_.Clear();
    EXPECT_EQ(Get("requestid=204&functiontype=" + std::to_string(kind) + "&uid=" + kUid).body,
              NarrowTextOf(u"CMDHL_CMDHL_GET_CLN_ALERT_MSG"))
        << kind;
    const auto received = peer_.WaitFor(1);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(std::vector<std::u16string>(received[0].text.begin() + 2, received[0].text.end()),
              Fields({u"", plat::Widen(std::to_string(kind))}));
  }
}

TEST_F(RqAlertMsg, OtherKindsAreRefusedWithTheirLeaveLines) {
  for (int kind : {2, 4, 6, 9, 11, 14, 127, 129, 255, -1}) {
    TraceCapture capture;
    EXPECT_EQ(Get("requestid=204&functiontype=" + std::to_string(kind)).body, "-3") << kind;
    EXPECT_EQ(LinesOf(capture, "[ProcessRqAlertMsg]"),
              (std::vector<std::string>{"[ProcessRqAlertMsg] Enter",
                                        "[ProcessRqAlertMsg] FunctionType = " + std::to_string(kind) + ", Uid = ",
                                        "[ProcessRqAlertMsg] Leave due error(-3)",
                                        "[ProcessRqAlertMsg] Leave successfully"}));
  }
  EXPECT_TRUE(peer_.WaitFor(1, 200).empty());
  TraceCapture capture;
  EXPECT_EQ(Get("requestid=204").body, "-3");
  EXPECT_EQ(LinesOf(capture, "[ProcessRqAlertMsg]"),
            (std::vector<std::string>{"[ProcessRqAlertMsg] Enter", "[ProcessRqAlertMsg] Leave due error(-3)"}))
      << "no leave-successfully line without a function type";
}

TEST_F(RqAlertMsg, AFailedQueryIsMinus5) {
  SetChannelReplyTimeoutMs(300);
  peer_.Script(u"CMDHL_CMDHL_GET_CLN_ALERT_MSG", Answer(peer::ReplyKind::kSilence));
  TraceCapture capture;
  EXPECT_EQ(Get("requestid=204&functiontype=128").body, "-5");
  EXPECT_EQ(LinesOf(capture, "[ProcessRqAlertMsg]").back(), "[ProcessRqAlertMsg] Leave successfully");
  EXPECT_EQ(capture.Count("[ProcessRqAlertMsg] Leave due error(-5)"), 1);
}

}  // namespace
