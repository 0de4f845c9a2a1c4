// The heartbeat poll (207).
#include "handler_fixture.h"

namespace {

using isapi::Response;

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

}  // namespace
