#include "support/b64_Base64Coder.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#if defined(VGCR_HAVE_OPENSSL_ORACLE)
#include <openssl/evp.h>
#endif

namespace {

std::vector<uint8_t> Bytes(const std::string& s) { return std::vector<uint8_t>(s.begin(), s.end()); }

TEST(Base64, Rfc4648Vectors) {
  const std::pair<std::string, std::string> vectors[] = {
      {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},        {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
  };
  for (const auto& [plain, encoded] : vectors) {
    EXPECT_EQ(Base64Coder::Encode(plain.data(), plain.size()), encoded);
    std::vector<uint8_t> decoded;
    EXPECT_TRUE(Base64Coder::Decode(encoded, &decoded)) << encoded;
    EXPECT_EQ(decoded, Bytes(plain)) << encoded;
  }
}

TEST(Base64, DecodingToleratesLineBreaksAndMissingPadding) {
  std::vector<uint8_t> out;
  EXPECT_TRUE(Base64Coder::Decode("Zm9v\r\nYmFy\n", &out));
  EXPECT_EQ(out, Bytes("foobar"));
  EXPECT_TRUE(Base64Coder::Decode("Zm9vYg", &out));
  EXPECT_EQ(out, Bytes("foob"));
}

TEST(Base64, MalformedTextIsRefused) {
  for (const char* bad : {"Zm9v!", "Z", "Zm9vY", "Zg=", "Z===", "Zg==Zg==", "=Zg", "Zm9\x80"}) {
    std::vector<uint8_t> out{1, 2, 3};
    EXPECT_FALSE(Base64Coder::Decode(bad, &out)) << bad;
    EXPECT_TRUE(out.empty()) << bad;
  }
}

#if defined(VGCR_HAVE_OPENSSL_ORACLE)
TEST(Base64, AgreesWithOpenSsl) {
  std::mt19937 random(1234);
  for (std::size_t size = 0; size < 700; size += 7) {
    std::vector<uint8_t> data(size);
    for (auto& b : data) b = static_cast<uint8_t>(random());
    std::string expected(4 * ((size + 2) / 3) + 1, '\0');
    int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(expected.data()), data.data(), static_cast<int>(size));
    expected.resize(static_cast<std::size_t>(n));
    EXPECT_EQ(Base64Coder::Encode(data.data(), data.size()), expected) << size;
  }
}
#endif

}  // namespace
