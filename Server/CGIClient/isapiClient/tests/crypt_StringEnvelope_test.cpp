// The envelopes' texts are fixed here as literals: natively they come from
// OpenSSL, under Wine from the classic provider and CNG, so the same
// literals passing on both is byte-for-byte agreement between them.
#include "support/crypt_StringEnvelope.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/crypto.h"
#include "support/b64_Base64Coder.h"

namespace {

const uint8_t kIv[16] = {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07,
                         0x08, 0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x0f};
const uint8_t kNonce[12] = {0xa0, 0xa1, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xab};

// Grüße, 東京 — ☃ 🙂
const std::string kMultiByte =
    "Gr\xC3\xBC\xC3\x9F" "e, \xE6\x9D\xB1\xE4\xBA\xAC \xE2\x80\x94 \xE2\x98\x83 \xF0\x9F\x99\x82";
const std::string kLong =
    "{\"requestid\":101,\"uid\":\"3F2504E0-4F89-11D3-9A0C-0305E82C3301\",\"computer\":\"WS-\xC3\x89T\xC3\x89-07\","
    "\"domain\":\"corp.example\",\"items\":[1,2,3,5,8,13,21,34,55,89,144,233,377,610,987],"
    "\"note\":\"0123456789abcdefghijklmnopqrstuvwxyz\"}";

const char kCryptLong[] =
    "!CRYPT!ry/SnlfZhFodieI30zavbyXM1ePTSqQh8zZbGWWvJQ7au6aFY1jnEysoad57RqRyXKExLqUSlQ6SuqZFbOnqsYbXP3o4PhDmlfXZc6M8SO8m"
    "uKnsMUyAIYCDppbJ1z1DiEJkTxV9Ftuj2yaKFttbZCQZqYQvoaAffxLCpfIrNpNbPxbdlNQEeRw+w2gec2yY5hfxNezVzL9G0ttqLOg8ej8/WoLMFac"
    "L8pbGvCxOJl+pKgvK9orRsw4d0iGUU8U+n788QdVLqPkfBHH4QCK6aIpcfEqfGYk/V8yKG3fjxGY=";
const char kCryptExLong[] =
    "!CRYPTEX!AAECAwQFBgcICQoLDA0ODzFdkcUsqkkXBuLm2Y/KPA4ZmLFt/XTW+fgevE3oKyLWkxsl07l3JGr5grLX76OwAXtB4uk7YHuNBGaRgJzth"
    "uodDKWRE6u2b3djmWlYA5VOMvFQbAoygmln5zIEbyE/KLwbc2oGXsg5cvfIe+hf0JVIUlLLjAP40ucqpYRihIlXCCpgpqOmT8qZts0pZ/GodSSou6bk"
    "gPO8VOEG9MN98bIXb4n7G0+CztNX2VUZ7tRLhMJutoXQLLtLDdbSY/p291dtLbN/LDrSp/LSWvT9rtz/scJHU+lV9B0TbRJBh4Oi";
const char kCryptEx3MultiByte[] =
    "!CRYPTEX3!oKGio6SlpqeoqaqrvQfGNo08L7cPdWFy/vZh/SK3lNaXGmrCA3VvbLPP03bXb04wb7Hoc0Eip/4=";
const char kCryptEx3Short[] = "!CRYPTEX3!oKGio6SlpqeoqaqrgVd2/i/XP+gNqd6scW6wOtC+PG4JGXXgemt7owlelA==";

struct Vector {
  const char* label;
  EnvelopeForm form;
  std::string plain;
  std::string envelope;
};

const Vector kVectors[] = {
    {"CryptEmpty", EnvelopeForm::kCrypt, "", "!CRYPT!vzoU5+oDLcuWuPs8HIzc1A=="},
    {"CryptAscii", EnvelopeForm::kCrypt, "{\"status\":\"ok\"}", "!CRYPT!Gpcn1o5qvOjsegI8Ol5/xQ=="},
    {"CryptOneBlock", EnvelopeForm::kCrypt, "Hello, envelope!", "!CRYPT!qlo4383JV8LpDY5U2vY47d8rC/LUBOA4koZaxf312DE="},
    {"CryptMultiByte", EnvelopeForm::kCrypt, kMultiByte, "!CRYPT!GuyPrWnLR7mbeXm0S65UV8E+5Hv1gcBPpLkObL+iMiw="},
    {"CryptLong", EnvelopeForm::kCrypt, kLong, kCryptLong},
    {"CryptExEmpty", EnvelopeForm::kCryptEx, "", "!CRYPTEX!AAECAwQFBgcICQoLDA0OD6BftZKMoGRUR0szdHEIajA="},
    {"CryptExAscii", EnvelopeForm::kCryptEx, "{\"status\":\"ok\"}",
     "!CRYPTEX!AAECAwQFBgcICQoLDA0OD3lpObC2n1JV23q2mvhz4i8="},
    {"CryptExOneBlock", EnvelopeForm::kCryptEx, "Hello, envelope!",
     "!CRYPTEX!AAECAwQFBgcICQoLDA0OD6IWXcoEFF+uT16ti7S3TCXwNgTtit5kv/4gPLfD4Wtx"},
    {"CryptExMultiByte", EnvelopeForm::kCryptEx, kMultiByte,
     "!CRYPTEX!AAECAwQFBgcICQoLDA0OD1/HaBHB9iMJjNbvPDYj9nMHxUyPpvZuPuiDhLgjp9sZ"},
    {"CryptExLong", EnvelopeForm::kCryptEx, kLong, kCryptExLong},
    {"CryptEx3Empty", EnvelopeForm::kCryptEx3, "", "!CRYPTEX3!oKGio6Slpqeoqaqr6y4+Yz32Qb+JION6GMezGQ=="},
    {"CryptEx3Ascii", EnvelopeForm::kCryptEx3, "{\"status\":\"ok\"}", kCryptEx3Short},
    {"CryptEx3OneBlock", EnvelopeForm::kCryptEx3, "Hello, envelope!",
     "!CRYPTEX3!oKGio6SlpqeoqaqrshBp5iGPav5B5ZmvdTyo/CYlOWZ3jsf2DN4Kx1kk90k="},
    {"CryptEx3MultiByte", EnvelopeForm::kCryptEx3, kMultiByte, kCryptEx3MultiByte},
    {"CryptEx3Long", EnvelopeForm::kCryptEx3, kLong,
     "!CRYPTEX3!oKGio6SlpqeoqaqrgVd37z/WL+hb+pjhIH397OwVdZ8RoNPAwKzE2zvJqlYbDew3hbyvtoM3JffYguqwXmOJ2w74L5/B4tHAdUH5OgTt"
     "4LtidME6ckYk7ykSDZg8P6n4O87Y/hd++nsGSq7+6YcIT3YHLXB6LrtkEQlU900tpU75XMaIls17WJ3kFr9rhwgWuO7zMCFFcMEJUj+/quY2b9oOSB"
     "bcyerfZd4eXRXIznPaOqXnqY6Q6SsCD59quP8mRNbUhJE/0UCbfmcGdSyMDp3kwAt9rr1ahXVkB8rdUmrGKMAN0NxHSqFFLk26cizN"},
};

void PrintTo(const Vector& v, std::ostream* os) { *os << v.label; }

EnvelopeStatus EncryptFixed(EnvelopeForm form, const std::string& plain, std::string* out) {
  switch (form) {
    case EnvelopeForm::kCryptEx: return StringEnvelope::EncryptWithIvForTesting(form, plain, kIv, sizeof kIv, out);
    case EnvelopeForm::kCryptEx3:
      return StringEnvelope::EncryptWithIvForTesting(form, plain, kNonce, sizeof kNonce, out);
    default: return StringEnvelope::EncryptWithIvForTesting(form, plain, nullptr, 0, out);
  }
}

class EnvelopeVector : public ::testing::TestWithParam<Vector> {};

TEST_P(EnvelopeVector, EncryptsToTheExpectedTextAndBack) {
  const Vector& v = GetParam();
  std::string envelope;
  ASSERT_EQ(EncryptFixed(v.form, v.plain, &envelope), EnvelopeStatus::kOk);
  EXPECT_EQ(envelope, v.envelope);
  std::string plain = "left over";
  EnvelopeForm form = EnvelopeForm::kPlain;
  ASSERT_EQ(StringEnvelope::Decrypt(v.envelope, &plain, &form), EnvelopeStatus::kOk);
  EXPECT_EQ(plain, v.plain);
  EXPECT_EQ(form, v.form);
  EXPECT_EQ(StringEnvelope::FormOf(v.envelope), v.form);
}

// Through the public entry: "!CRYPT!" gives the same text each time, the
// others a new IV or nonce each time.
TEST_P(EnvelopeVector, RandomIvOnlyWhereTheFormHasOne) {
  const Vector& v = GetParam();
  std::string first, second, plain;
  ASSERT_EQ(StringEnvelope::Encrypt(v.form, v.plain, &first), EnvelopeStatus::kOk);
  ASSERT_EQ(StringEnvelope::Encrypt(v.form, v.plain, &second), EnvelopeStatus::kOk);
  if (v.form == EnvelopeForm::kCrypt) {
    EXPECT_EQ(first, v.envelope);
  } else {
    EXPECT_NE(first, second);
    EXPECT_EQ(first.size(), v.envelope.size());
  }
  for (const std::string& text : {first, second}) {
    ASSERT_EQ(StringEnvelope::Decrypt(text, &plain), EnvelopeStatus::kOk) << text;
    EXPECT_EQ(plain, v.plain);
  }
}

INSTANTIATE_TEST_SUITE_P(Envelopes, EnvelopeVector, ::testing::ValuesIn(kVectors),
                         [](const auto& param) { return std::string(param.param.label); });

TEST(Envelopes, FormsByMarker) {
  const std::pair<std::string, EnvelopeForm> cases[] = {
      {"", EnvelopeForm::kPlain},
      {"{\"requestid\":101}", EnvelopeForm::kPlain},
      {"!CRYPT!", EnvelopeForm::kCrypt},
      {"!CRYPTEX!x", EnvelopeForm::kCryptEx},
      {"!CRYPTEX3!x", EnvelopeForm::kCryptEx3},
      {"!CRYPTEX3", EnvelopeForm::kPlain},
      {"!CRYPTEX2!x", EnvelopeForm::kPlain},
      {"!crypt!x", EnvelopeForm::kPlain},
      {" !CRYPT!x", EnvelopeForm::kPlain},
  };
  for (const auto& [text, form] : cases) EXPECT_EQ(StringEnvelope::FormOf(text), form) << text;
  for (EnvelopeForm form : {EnvelopeForm::kCrypt, EnvelopeForm::kCryptEx, EnvelopeForm::kCryptEx3}) {
    EXPECT_EQ(StringEnvelope::FormOf(StringEnvelope::Marker(form)), form);
  }
  EXPECT_TRUE(StringEnvelope::Marker(EnvelopeForm::kPlain).empty());
}

TEST(Envelopes, PlainFormIsTheTextItself) {
  // A reply goes back in its request's form, and that form may be none.
  const std::string json = "{\"a\":\"\xFF not even UTF-8\"}";
  std::string out;
  EXPECT_EQ(StringEnvelope::Encrypt(EnvelopeForm::kPlain, json, &out), EnvelopeStatus::kOk);
  EXPECT_EQ(out, json);
}

// What follows the marker.
std::string Body(std::string_view envelope) {
  return std::string(envelope.substr(StringEnvelope::Marker(StringEnvelope::FormOf(envelope)).size()));
}

std::string Base64OfZeros(std::size_t size) {
  std::vector<uint8_t> zeros(size);
  return Base64Coder::Encode(zeros.data(), zeros.size());
}

// The long "!CRYPT!" text less its last block: what is left decrypts to
// text that ends in no padding.
std::string CryptLongLessOneBlock() {
  std::vector<uint8_t> bytes;
  EXPECT_TRUE(Base64Coder::Decode(Body(kCryptLong), &bytes));
  bytes.resize(bytes.size() - 16);
  return "!CRYPT!" + Base64Coder::Encode(bytes.data(), bytes.size());
}

struct Malformed {
  const char* label;
  std::string text;
  EnvelopeStatus status;
};

TEST(Envelopes, MalformedTextsFailWithTheirReason) {
  const std::string cryptEmptyBody = "vzoU5+oDLcuWuPs8HIzc1A==";
  const Malformed cases[] = {
      {"empty", "", EnvelopeStatus::kUnknownMarker},
      {"json", "{\"requestid\":101}", EnvelopeStatus::kUnknownMarker},
      {"lower-case marker", "!crypt!" + cryptEmptyBody, EnvelopeStatus::kUnknownMarker},
      {"unknown generation", "!CRYPTEX2!" + cryptEmptyBody, EnvelopeStatus::kUnknownMarker},
      {"blank before marker", " !CRYPT!" + cryptEmptyBody, EnvelopeStatus::kUnknownMarker},
      {"marker without its last '!'", "!CRYPTEX3" + cryptEmptyBody, EnvelopeStatus::kUnknownMarker},
      {"only !CRYPT!", "!CRYPT!", EnvelopeStatus::kBadLength},
      {"only !CRYPTEX!", "!CRYPTEX!", EnvelopeStatus::kBadLength},
      {"only !CRYPTEX3!", "!CRYPTEX3!", EnvelopeStatus::kBadLength},
      {"letter outside the alphabet", "!CRYPT!vzoU5*oDLcuWuPs8HIzc1A==", EnvelopeStatus::kBadBase64},
      {"url-safe alphabet", "!CRYPT!vzoU5-oDLcuWuPs8HIzc1A==", EnvelopeStatus::kBadBase64},
      {"padding left out", "!CRYPT!vzoU5+oDLcuWuPs8HIzc1A", EnvelopeStatus::kBadBase64},
      {"line break", "!CRYPT!vzoU5+oDLcuW\r\nuPs8HIzc1A==", EnvelopeStatus::kBadBase64},
      {"trailing blank", "!CRYPT!vzoU5+oDLcuWuPs8HIzc1A== ", EnvelopeStatus::kBadBase64},
      {"unused bits set", "!CRYPT!vzoU5+oDLcuWuPs8HIzc1B==", EnvelopeStatus::kBadBase64},
      {"padding inside", "!CRYPT!vzoU5+oD=cuWuPs8HIzc1A==", EnvelopeStatus::kBadBase64},
      {"NUL in the text", std::string("!CRYPT!vzoU5+oDLcuWuPs8\0HIzc1A==", 32), EnvelopeStatus::kBadBase64},
      {"!CRYPT! of 15 bytes", "!CRYPT!" + Base64OfZeros(15), EnvelopeStatus::kBadLength},
      {"!CRYPT! of 17 bytes", "!CRYPT!" + Base64OfZeros(17), EnvelopeStatus::kBadLength},
      {"!CRYPTEX! of an IV alone", "!CRYPTEX!" + Base64OfZeros(16), EnvelopeStatus::kBadLength},
      {"!CRYPTEX! of 40 bytes", "!CRYPTEX!" + Base64OfZeros(40), EnvelopeStatus::kBadLength},
      {"!CRYPTEX3! of 27 bytes", "!CRYPTEX3!" + Base64OfZeros(27), EnvelopeStatus::kBadLength},
      {"!CRYPTEX3! of 28 zeros", "!CRYPTEX3!" + Base64OfZeros(28), EnvelopeStatus::kNotAuthentic},
      {"!CRYPT! cut by a block", CryptLongLessOneBlock(), EnvelopeStatus::kBadPadding},
      {"!CRYPT! text under !CRYPTEX!", "!CRYPTEX!" + Body(kCryptLong), EnvelopeStatus::kBadPadding},
      {"!CRYPTEX! text under !CRYPT!", "!CRYPT!" + Body(kCryptExLong), EnvelopeStatus::kBadPadding},
      {"!CRYPTEX! text under !CRYPTEX3!", "!CRYPTEX3!" + Body(kCryptExLong), EnvelopeStatus::kNotAuthentic},
      {"!CRYPTEX3! text under !CRYPTEX!", "!CRYPTEX!" + Body(kCryptEx3Short), EnvelopeStatus::kBadLength},
      {"one over the bound", "!CRYPT!" + std::string(StringEnvelope::kMaxEnvelopeSize - 6, 'A'),
       EnvelopeStatus::kTooLong},
  };
  for (const Malformed& c : cases) {
    std::string plain = "left over";
    EXPECT_EQ(StringEnvelope::Decrypt(c.text, &plain), c.status) << c.label;
    EXPECT_TRUE(plain.empty()) << c.label;
  }
}

// Any change to a "!CRYPTEX3!" text, marker included, is refused: every
// bit of every byte, every shorter text, and one letter more.
TEST(Envelopes, EveryChangeToAnAuthenticatedTextFails) {
  const std::string original = kCryptEx3MultiByte;
  std::string plain;
  ASSERT_EQ(StringEnvelope::Decrypt(original, &plain), EnvelopeStatus::kOk);
  for (std::size_t i = 0; i < original.size(); ++i) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string changed = original;
      changed[i] = static_cast<char>(changed[i] ^ (1 << bit));
      EnvelopeStatus status = StringEnvelope::Decrypt(changed, &plain);
      EXPECT_NE(status, EnvelopeStatus::kOk) << "byte " << i << " bit " << bit;
      EXPECT_TRUE(plain.empty()) << "byte " << i << " bit " << bit;
    }
  }
  for (std::size_t length = 0; length < original.size(); ++length) {
    EXPECT_NE(StringEnvelope::Decrypt(original.substr(0, length), &plain), EnvelopeStatus::kOk) << length;
  }
  for (const char* more : {"A", "=", "\n", " "}) {
    EXPECT_NE(StringEnvelope::Decrypt(original + more, &plain), EnvelopeStatus::kOk) << more;
  }
}

// "!CRYPT!" texts made as another implementation would make them, from the
// documented passphrase with the platform's primitives: what the blocks
// hold decides the answer.
const char kCryptPassphrase[] = "Vigilcrest/FrontDoor/Envelope#1:q7Zt2Lm9";

TEST(Envelopes, CryptBlocksDecideTheAnswer) {
  auto key = plat::AesCbcKey::FromLegacyPassphrase(kCryptPassphrase);
  ASSERT_TRUE(key);
  const uint8_t zeroIv[16] = {};
  auto crypt = [&](std::string blocks) {
    EXPECT_EQ(blocks.size() % 16, 0u);
    std::vector<uint8_t> bytes(blocks.begin(), blocks.end());
    EXPECT_TRUE(key->Encrypt(zeroIv, bytes.data(), bytes.size(), bytes.data()));
    return "!CRYPT!" + Base64Coder::Encode(bytes.data(), bytes.size());
  };
  const struct {
    const char* label;
    std::string blocks;
    EnvelopeStatus status;
    std::string plain;
  } cases[] = {
      {"well padded", std::string("{\"ok\":1}") + std::string(8, '\x08'), EnvelopeStatus::kOk, "{\"ok\":1}"},
      {"a whole block of padding", std::string(16, 'a') + std::string(16, '\x10'), EnvelopeStatus::kOk,
       std::string(16, 'a')},
      {"padding of zero", std::string(15, 'a') + std::string(1, '\0'), EnvelopeStatus::kBadPadding, ""},
      {"padding of 17", std::string(31, 'a') + "\x11", EnvelopeStatus::kBadPadding, ""},
      {"padding bytes that differ", std::string(13, 'a') + "\x03\x02\x03", EnvelopeStatus::kBadPadding, ""},
      {"no padding at all", std::string(16, 'a'), EnvelopeStatus::kBadPadding, ""},
      {"not UTF-8", std::string("caf\xE9") + std::string(12, '\x0c'), EnvelopeStatus::kBadText, ""},
      {"a NUL inside", std::string("a\0b", 3) + std::string(13, '\x0d'), EnvelopeStatus::kBadText, ""},
  };
  for (const auto& c : cases) {
    std::string plain = "left over";
    EXPECT_EQ(StringEnvelope::Decrypt(crypt(c.blocks), &plain), c.status) << c.label;
    EXPECT_EQ(plain, c.plain) << c.label;
  }
}

TEST(Envelopes, EncryptionRefusesWhatDecryptionWould) {
  const std::pair<const char*, std::string> notText[] = {
      {"lone continuation byte", "\x80"},
      {"overlong slash", "\xC0\xAF"},
      {"overlong three-byte", "\xE0\x80\xAF"},
      {"surrogate", "\xED\xA0\x80"},
      {"past U+10FFFF", "\xF4\x90\x80\x80"},
      {"cut short", "\xE2\x82"},
      {"Windows-1252", "caf\xE9"},
      {"NUL", std::string("a\0b", 3)},
  };
  for (EnvelopeForm form : {EnvelopeForm::kCrypt, EnvelopeForm::kCryptEx, EnvelopeForm::kCryptEx3}) {
    for (const auto& [label, text] : notText) {
      std::string out = "left over";
      EXPECT_EQ(StringEnvelope::Encrypt(form, text, &out), EnvelopeStatus::kBadText) << label;
      EXPECT_TRUE(out.empty()) << label;
    }
    std::string out = "left over";
    EXPECT_EQ(StringEnvelope::EncryptWithIvForTesting(form, "x", kIv, 5, &out), EnvelopeStatus::kInternalError);
    EXPECT_TRUE(out.empty());
  }
}

// The longest text each form can carry within the bound encrypts and
// decrypts; one byte more is refused before anything is done.
TEST(Envelopes, BoundOnLength) {
  struct Limit {
    EnvelopeForm form;
    std::size_t marker, overhead;  // overhead: bytes before base64 besides the text
    bool padded;
  };
  const Limit limits[] = {{EnvelopeForm::kCrypt, 7, 0, true},
                          {EnvelopeForm::kCryptEx, 9, 16, true},
                          {EnvelopeForm::kCryptEx3, 10, 28, false}};
  for (const Limit& l : limits) {
    const std::size_t bytes = (StringEnvelope::kMaxEnvelopeSize - l.marker) / 4 * 3;
    // With PKCS#7 at least one byte of padding, up to the block.
    const std::size_t longest = l.padded ? (bytes - l.overhead) / 16 * 16 - 1 : bytes - l.overhead;
    std::string envelope, plain;
    ASSERT_EQ(StringEnvelope::Encrypt(l.form, std::string(longest, 'x'), &envelope), EnvelopeStatus::kOk);
    EXPECT_LE(envelope.size(), StringEnvelope::kMaxEnvelopeSize);
    ASSERT_EQ(StringEnvelope::Decrypt(envelope, &plain), EnvelopeStatus::kOk);
    EXPECT_EQ(plain.size(), longest);
    EXPECT_EQ(StringEnvelope::Encrypt(l.form, std::string(longest + 1, 'x'), &envelope), EnvelopeStatus::kTooLong);
    EXPECT_TRUE(envelope.empty());
  }
}

// The keys are shared by every request thread.
TEST(Envelopes, ConcurrentUse) {
  std::vector<std::thread> threads;
  std::vector<int> failures(4, 0);
  for (std::size_t t = 0; t < failures.size(); ++t) {
    threads.emplace_back([t, &failures] {
      for (int i = 0; i < 30; ++i) {
        const auto form = static_cast<EnvelopeForm>(1 + (static_cast<int>(t) + i) % 3);
        const std::string text = kLong.substr(0, static_cast<std::size_t>(i) * 7);
        std::string envelope, plain;
        if (StringEnvelope::Encrypt(form, text, &envelope) != EnvelopeStatus::kOk ||
            StringEnvelope::Decrypt(envelope, &plain) != EnvelopeStatus::kOk || plain != text) {
          ++failures[t];
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (int f : failures) EXPECT_EQ(f, 0);
}

}  // namespace
