#include "fuzz_seeds.h"

#include "channel/ser_MsgSerializer.h"

namespace {

std::vector<uint8_t> Wire(CMsgSerializer& message) {
  message.Finish();
  return std::vector<uint8_t>(message.Buffer().Data(), message.Buffer().Data() + message.GetSize());
}

}  // namespace

std::vector<std::vector<uint8_t>> MessageSeeds() {
  std::vector<std::vector<uint8_t>> seeds;
  {
    CMsgSerializer m(u"CMDHLV2_CLN_ON_START");
    seeds.push_back(Wire(m));
  }
  {
    CMsgSerializer m(u"CMDHLV2_HEARTBEAT_NOTIFY");
    ser::WriteWString(m, u"3F2504E0-4F89-11D3-9A0C-0305E82C3301");
    ser::WriteU32(m, 7);
    ser::WriteString(m, "narrow");
    uint8_t block[16] = {1, 2, 3};
    ser::WriteBlock(m, block, sizeof block);
    seeds.push_back(Wire(m));
  }
  {
    // A file-backed message whose file is long gone.
    CMsgSerializer m(u"CMDHLV2_SET_LOG_COMMON", 2);
    ser::WriteU32(m, 1);
    seeds.push_back(Wire(m));
  }
  return seeds;
}

std::vector<std::vector<uint8_t>> RequestSeeds() {
  std::vector<std::vector<uint8_t>> seeds;
  for (const char* text : {"requestid=101&uid=3F2504E0-4F89-11D3-9A0C-0305E82C3301&computer=caf%C3%A9",
                           "a=1&A=2&x=%4", "x=1#y=2&flag&z=%G1%1G+%", "domain=%E2%82%AC%E2%82%AC&SA_ISR=CN%3Dx"}) {
    std::string s(text);
    seeds.emplace_back(s.begin(), s.end());
  }
  return seeds;
}
