#include "host/rsp_Reply.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "channel_fixture.h"
#include "isapi/exchange.h"

namespace {

// A response object over a control block that records what it sends.
struct Sink {
  isapi::Exchange exchange{isapi::Request{}};
  CHttpResponse response{exchange.Ecb()};
  RequestParams params;
  isapi::Response Sent() { return exchange.TakeResponse(); }
};

TEST(Replies, CodeAndTimeIsZeroPaddedToTenDigits) {
  const std::pair<int64_t, const char*> cases[] = {{1234567890, "1\n1234567890"}, {5, "1\n0000000005"}};
  for (const auto& [time, expected] : cases) {
    Sink sink;
    ASSERT_TRUE(WriteCodeAndTimeReplyAt(sink.params, sink.response, 1, time));
    EXPECT_EQ(sink.Sent().body, expected);
    EXPECT_EQ(sink.Sent().Header("Content-Type"), "application/octet-stream");
  }
}

// Code-page conversion and bodies larger than the buffer are checked
// through the settings requests (rqcfg_test).
TEST(Replies, AReplyHandedOverCountsAsWrittenWhenTheClientHasGone) {
  isapi::Request gone;
  gone.clientGone = true;
  isapi::Exchange exchange{gone};
  CHttpResponse response{exchange.Ecb()};
  RequestParams params;
  EXPECT_TRUE(WriteCodeReply(params, response, 1));
  EXPECT_TRUE(WriteWideTextReply(params, response, u"text"));
}

class ConfigRecord : public WithServicePeer {};

TEST_F(ConfigRecord, RemovalSendsTheFixed128ByteRecord) {
  ASSERT_TRUE(RemoveConfigRecord(u"3F2504E0-4F89-11D3-9A0C-0305E82C3301-and-more", 115, u"6.0.1234"));
  const auto fields = OnlyMessage(u"CMDHLV2_CLN_REMOVE_CONFIG_REC");
  ASSERT_EQ(fields.size(), 1u);
  const peer::Bytes& block = fields[0];
  ASSERT_EQ(block.size(), 128u);
  EXPECT_EQ(peer::AsU32(block), 115u);
  EXPECT_EQ(peer::AsWString(peer::Bytes(block.begin() + 4, block.begin() + 78)),
            u"3F2504E0-4F89-11D3-9A0C-0305E82C3301") << "cut to 36 characters and a NUL";
  EXPECT_EQ(peer::AsWString(peer::Bytes(block.begin() + 78, block.begin() + 94)), u"6.0.123") << "8 units with the NUL";
  for (std::size_t i = 94; i < 128; ++i) EXPECT_EQ(block[i], 0) << i;
}

}  // namespace
