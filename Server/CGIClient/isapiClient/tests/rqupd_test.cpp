// The update request (205): no parameters, the update order's text, and
// the borrowed trace line of a failed exchange.
#include "handler_fixture.h"

namespace {

class RqUpd : public Handlers {};

peer::Reply UpdateOrder(const std::u16string& text) {
  return MessageAnswer([text](peer::Builder& b) { b.WString(text); });
}

TEST_F(RqUpd, TheUpdateOrderIsAnsweredWithNoParameters) {
  peer_.Script(u"CMDHLV2_CLN_RQ_UPD", UpdateOrder(u"[Update]\r\nOrder=1\r\nSource=http://update.example/"));
  EXPECT_EQ(Get("requestid=205").body, "[Update]\r\nOrder=1\r\nSource=http://update.example/");
  const auto fields = OnlyMessage(u"CMDHLV2_CLN_RQ_UPD");
  EXPECT_TRUE(fields.empty()) << "an empty body";
  peer_.Script(u"CMDHLV2_CLN_RQ_UPD", UpdateOrder(u""));
  const isapi::Response empty = Get("requestid=205");
  EXPECT_EQ(empty.status, 200);
  EXPECT_EQ(empty.body, "");
}

TEST_F(RqUpd, AFailedExchangeIsMinus5UnderTheConfigurationRequestsName) {
  const std::pair<const char*, peer::Reply> faults[] = {
      {"no answer", Answer(peer::ReplyKind::kSilence)},
      {"answer without its text", MessageAnswer([](peer::Builder&) {})},
  };
  SetChannelReplyTimeoutMs(300);
  for (const auto& [label, reply] : faults) {
    peer_.Script(u"CMDHLV2_CLN_RQ_UPD", reply);
    TraceCapture capture;
    EXPECT_EQ(Get("requestid=205").body, "-5") << label;
    EXPECT_EQ(capture.Count("[ProcessRqCfg] Leave due error(-5)"), 1) << label;
    EXPECT_EQ(capture.Count("[ProcessRqUpd] Leave successfully"), 1) << label;
  }
}

}  // namespace
