// VDI coordination (301): JSON requests, plain or enciphered, checked before
// anything is sent, and the service's answers turned into JSON replies in
// the request's own form.
#include "handler_fixture.h"
#include "channel/rec_Vdi.h"
#include "support/crypt_StringEnvelope.h"

namespace {

constexpr char kDesktop[] = R"({"uid":"3F2504E0-4F89-11D3-9A0C-0305E82C3301","pool":"hv-07")";

std::string Encode(const std::string& text) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (const unsigned char c : text) {
    if (std::isalnum(c)) {
      out.push_back(static_cast<char>(c));
    } else {
      out += {'%', kHex[c >> 4], kHex[c & 15]};
    }
  }
  return out;
}

class Vdi : public Handlers {
 protected:
  isapi::Response Ask(int type, const std::string& data) {
    return host_.Send(InProcessHost::Post("requestid=301&functiontype=" + std::to_string(type) + "&data=" +
                                          Encode(data)));
  }
  static peer::Reply Decision(int32_t decision, uint32_t retryAfter = 0, uint32_t position = 0) {
    return MessageAnswer([=](peer::Builder& b) { b.I32(decision).U32(retryAfter).U32(position); });
  }
  static std::string Start() { return std::string(kDesktop) + R"(,"taskKind":"scheduled-scan","taskId":"t-1"})"; }
};

TEST_F(Vdi, EachRequestIsItsRoundTripAndItsJsonReply) {
  const struct {
    int type;
    std::string data;
    peer::Reply answer;
    const char* reply;
  } cases[] = {
      {1, Start(), Decision(1), R"({"action":"start"})"},
      {1, Start(), Decision(2, 30, 4), R"({"action":"wait","position":4,"retryAfter":30})"},
      {2, std::string(kDesktop) + R"(,"taskId":"t-1","progress":100})", Decision(3), R"({"action":"continue"})"},
      {3, std::string(kDesktop) + R"(,"taskId":"t-1","result":-2147483648})", Decision(3), R"({"action":"done"})"},
      {1, Start(), Decision(-1), "-39"},
      {3, std::string(kDesktop) + R"(,"taskId":"t-1","result":0})", Decision(-2), "-50"},
      {1, Start(), Decision(3), "-5"},  // an answer that is no answer to a start request
      {2, std::string(kDesktop) + R"(,"taskId":"t-1","progress":0})", Answer(peer::ReplyKind::kSilence), "-5"},
  };
  for (const auto& c : cases) {
    peer_.Clear();
    peer_.Script(vdi::kCommands[c.type - 1], c.answer);
    EXPECT_EQ(Ask(c.type, c.data).body, c.reply) << c.data;
    const auto received = peer_.WaitFor(1);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].Command(), vdi::kCommands[c.type - 1]);
  }
  peer_.Clear();
  peer_.Script(vdi::kCommands[0], Decision(1));
  Ask(1, Start());
  const auto f = OnlyMessage(vdi::kCommands[0]);
  ASSERT_EQ(f.size(), 6u);
  EXPECT_EQ(peer::AsWString(f[0]), plat::Widen(kUid));
  EXPECT_EQ(peer::AsWString(f[1]), u"hv-07");
  EXPECT_EQ(peer::AsWString(f[2]), u"scheduled-scan");
  EXPECT_EQ(peer::AsWString(f[3]), u"t-1");
  EXPECT_EQ(peer::AsU32(f[4]), 0u);
  // Progress and result each in its own field.
  peer_.Clear();
  peer_.Script(vdi::kCommands[2], Decision(3));
  Ask(3, std::string(kDesktop) + R"(,"taskId":"t-1","result":-7})");
  const auto complete = OnlyMessage(vdi::kCommands[2]);
  ASSERT_EQ(complete.size(), 6u);
  EXPECT_EQ(peer::AsWString(complete[2]), u"") << "no task kind but in a start request";
  EXPECT_EQ(peer::AsU32(complete[4]), 0u);
  EXPECT_EQ(peer::AsU32(complete[5]), static_cast<uint32_t>(-7));
}

TEST_F(Vdi, AnEncipheredRequestIsAnsweredInItsOwnEnvelope) {
  peer_.Script(vdi::kCommands[0], Decision(2, 30, 1));
  for (const EnvelopeForm form : {EnvelopeForm::kCrypt, EnvelopeForm::kCryptEx, EnvelopeForm::kCryptEx3}) {
    std::string request;
    ASSERT_EQ(StringEnvelope::Encrypt(form, Start(), &request), EnvelopeStatus::kOk);
    const std::string reply = Ask(1, request).body;
    EXPECT_EQ(StringEnvelope::FormOf(reply), form) << reply;
    std::string plain;
    EXPECT_EQ(StringEnvelope::Decrypt(reply, &plain), EnvelopeStatus::kOk) << reply;
    EXPECT_EQ(plain, R"({"action":"wait","position":1,"retryAfter":30})");
  }
}

TEST_F(Vdi, BadRequestsAreRefusedBeforeAnythingIsSent) {
  std::string tampered;
  ASSERT_EQ(StringEnvelope::Encrypt(EnvelopeForm::kCryptEx3, Start(), &tampered), EnvelopeStatus::kOk);
  tampered[tampered.size() / 2] = tampered[tampered.size() / 2] == 'A' ? 'B' : 'A';
  std::string deep = std::string(kDesktop) + R"(,"taskKind":"k","taskId":"t","x":)";
  for (int i = 0; i < 9; ++i) deep += "[";
  deep += std::string(9, ']') + "}";
  std::string huge = std::string(kDesktop) + R"(,"taskKind":"k","taskId":"t","pad":")";
  huge += std::string(16384 - huge.size() - 1, 'p') + "\"}";  // 16,385 bytes
  const struct {
    int type;
    std::string data;
    const char* reply;
  } cases[] = {
      {4, Start(), "-3"},
      {0, Start(), "-3"},
      {1, "not json", "-47"},
      {1, "[1,2]", "-47"},
      {1, Start() + "x", "-47"},                                         // something after the document
      {1, std::string(kDesktop) + R"(,"taskKind":"k"})", "-47"},           // no taskId
      {1, std::string(kDesktop) + R"(,"taskKind":"k","taskId":7})", "-47"},  // the wrong type
      {1, std::string(kDesktop) + R"(,"taskKind":"","taskId":"t"})", "-47"},  // empty
      {1, std::string(kDesktop) + R"(,"taskKind":"k","taskId":"a\u0000b"})", "-47"},  // a NUL inside
      {1, std::string(kDesktop) + R"(,"taskKind":"k","taskId":")" + std::string(65, 't') + "\"}", "-47"},
      {1, std::string(kDesktop) + R"(,"pool":"twice","taskKind":"k","taskId":"t"})", "-47"},
      {2, std::string(kDesktop) + R"(,"taskId":"t","progress":101})", "-47"},
      {2, std::string(kDesktop) + R"(,"taskId":"t","progress":"50"})", "-47"},
      {2, std::string(kDesktop) + R"(,"taskId":"t","progress":50.0})", "-47"},
      {1, std::string(kDesktop) + R"(,"taskKind":"k","taskId":"t\xff"})", "-47"},  // no UTF-8
      {3, std::string(kDesktop) + R"(,"taskId":"t","result":2147483648})", "-47"},
      {1, deep, "-47"},
      {1, huge, "-47"},
      {1, R"({"uid":"not-a-guid","pool":"p","taskKind":"k","taskId":"t"})", "-6"},
      {1, "!CRYPTEX2!" + tampered.substr(10), "-47"},  // no marker of ours: a text, and no JSON
      {1, tampered, "-48"},
      {1, "!CRYPT!abc", "-48"},
  };
  for (const auto& c : cases) EXPECT_EQ(Ask(c.type, c.data).body, c.reply) << c.data.substr(0, 100);
  EXPECT_EQ(host_.Send(InProcessHost::Post("requestid=301&functiontype=1")).body, "-40");
  EXPECT_TRUE(peer_.WaitFor(1, 200).empty());
}

}  // namespace
