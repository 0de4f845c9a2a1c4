#include "support/md5_MessageDigest5.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/hex_Format.h"

#if defined(VGCR_HAVE_OPENSSL_ORACLE)
#include <openssl/evp.h>
#endif

namespace {

TEST(MD5, Rfc1321Suite) {
  const std::pair<std::string, std::string> suite[] = {
      {"", "D41D8CD98F00B204E9800998ECF8427E"},
      {"a", "0CC175B9C0F1B6A831C399E269772661"},
      {"abc", "900150983CD24FB0D6963F7D28E17F72"},
      {"message digest", "F96B697D7CB7938D525A2F31AAF161D0"},
      {"abcdefghijklmnopqrstuvwxyz", "C3FCD3D76192E4007DFB496CCA67E13B"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "D174AB98D277D9F5A5611C2C9F419D9F"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57EDF4A22BE3C955AC49DA2E2107B67A"},
  };
  for (const auto& [text, digest] : suite) {
    EXPECT_EQ(CMessageDigest5::HexDigest(text.data(), text.size()), digest) << text;
  }
}

TEST(MD5, PiecewiseUpdatesEqualOneUpdate) {
  std::string text(1000, 'q');
  for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('a' + i % 26);
  std::string whole = CMessageDigest5::HexDigest(text.data(), text.size());
  for (std::size_t step : {1u, 3u, 63u, 64u, 65u, 127u}) {
    CMessageDigest5 md5;
    for (std::size_t at = 0; at < text.size(); at += step) {
      md5.Update(text.data() + at, std::min(step, text.size() - at));
    }
    uint8_t digest[16];
    md5.Final(digest);
    EXPECT_EQ(HexFormat::Bytes(digest, 16), whole) << "step " << step;
  }
}

#if defined(VGCR_HAVE_OPENSSL_ORACLE)
TEST(MD5, AgreesWithOpenSsl) {
  std::mt19937 random(99);
  for (std::size_t size = 0; size < 2100; size += 37) {
    std::vector<uint8_t> data(size);
    for (auto& b : data) b = static_cast<uint8_t>(random());
    unsigned char expected[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    ASSERT_EQ(EVP_Digest(data.data(), data.size(), expected, &length, EVP_md5(), nullptr), 1);
    EXPECT_EQ(CMessageDigest5::HexDigest(data.data(), data.size()), HexFormat::Bytes(expected, length)) << size;
  }
}
#endif

}  // namespace
