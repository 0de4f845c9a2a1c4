// The crypto primitives against published vectors, on every platform: the
// same answers from OpenSSL natively and from CNG under Windows. The
// classic provider's key is checked through the envelopes' fixed texts.
#include "platform/crypto.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace plat {
namespace {

std::vector<uint8_t> FromHex(std::string_view hex) {
  std::vector<uint8_t> bytes;
  auto nibble = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(nibble(hex[i]) << 4 | nibble(hex[i + 1])));
  }
  return bytes;
}

template <std::size_t N>
void Fill(uint8_t (&out)[N], std::string_view hex) {
  std::vector<uint8_t> bytes = FromHex(hex);
  ASSERT_EQ(bytes.size(), N);
  std::memcpy(out, bytes.data(), N);
}

TEST(Crypto, Pbkdf2HmacSha256Vectors) {
  // RFC 7914, section 11.
  struct Case {
    const char* password;
    const char* salt;
    uint32_t iterations;
    const char* key;
  };
  const Case cases[] = {
      {"passwd", "salt", 1,
       "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"
       "49ca9cccf179b645991664b39d77ef317c71b845b1e30bd509112041d3a19783"},
      {"Password", "NaCl", 80000,
       "4ddcd8f60b98be21830cee5ef22701f9641a4418d04c0414aeff08876b34ab56"
       "a1d425a1225833549adb841b51c9b3176a272bdebba1d078478f62b397f33c8d"},
  };
  for (const Case& c : cases) {
    std::vector<uint8_t> key(64);
    ASSERT_TRUE(Pbkdf2HmacSha256(c.password, reinterpret_cast<const uint8_t*>(c.salt), std::strlen(c.salt),
                                 c.iterations, key.data(), key.size()))
        << c.password;
    EXPECT_EQ(key, FromHex(c.key)) << c.password;
  }
}

TEST(Crypto, AesCbcVectorBothWays) {
  // NIST SP 800-38A, F.2.5 and F.2.6 (CBC-AES256).
  uint8_t keyBytes[kAes256KeySize], iv[kAesBlockSize];
  Fill(keyBytes, "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
  Fill(iv, "000102030405060708090a0b0c0d0e0f");
  const std::vector<uint8_t> plain = FromHex(
      "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
      "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
  const std::vector<uint8_t> cipher = FromHex(
      "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
      "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b");
  auto key = AesCbcKey::FromBytes(keyBytes);
  ASSERT_TRUE(key);
  std::vector<uint8_t> out(plain.size());
  ASSERT_TRUE(key->Encrypt(iv, plain.data(), plain.size(), out.data()));
  EXPECT_EQ(out, cipher);
  // In place, as the envelopes use it.
  ASSERT_TRUE(key->Decrypt(iv, out.data(), out.size(), out.data()));
  EXPECT_EQ(out, plain);
}

struct GcmCase {
  const char* label;
  const char* key;
  const char* nonce;
  const char* aad;
  const char* plain;
  const char* cipher;
  const char* tag;
};

// The GCM paper's test cases 13 and 16 (AES-256, 96-bit IV).
const GcmCase kGcmCases[] = {
    {"Empty", "0000000000000000000000000000000000000000000000000000000000000000", "000000000000000000000000", "", "",
     "", "530f8afbc74536b9a963b4f1c4cb738b"},
    {"WithAad", "feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308", "cafebabefacedbaddecaf888",
     "feedfacedeadbeeffeedfacedeadbeefabaddad2",
     "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e2449a6b525b16aedf5aa0de657"
     "ba637b39",
     "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b08b1056828838c5f61e6393ba7a0a"
     "bcc9f662",
     "76fc6ece0f4e1768cddf8853bb2d551b"},
};

void PrintTo(const GcmCase& c, std::ostream* os) { *os << c.label; }

class GcmVector : public ::testing::TestWithParam<GcmCase> {};

TEST_P(GcmVector, SealsAndOpens) {
  const GcmCase& c = GetParam();
  uint8_t keyBytes[kAes256KeySize], nonce[kGcmNonceSize], tag[kGcmTagSize];
  Fill(keyBytes, c.key);
  Fill(nonce, c.nonce);
  const std::vector<uint8_t> aad = FromHex(c.aad), plain = FromHex(c.plain), cipher = FromHex(c.cipher);
  auto key = AesGcmKey::FromBytes(keyBytes);
  ASSERT_TRUE(key);
  std::vector<uint8_t> out(plain.size() + 1);  // never empty, so data() is a real pointer
  ASSERT_TRUE(key->Encrypt(nonce, aad.data(), aad.size(), plain.data(), plain.size(), out.data(), tag));
  out.pop_back();
  EXPECT_EQ(out, cipher);
  EXPECT_EQ(std::vector<uint8_t>(tag, tag + kGcmTagSize), FromHex(c.tag));
  out.push_back(0);
  ASSERT_TRUE(key->Decrypt(nonce, aad.data(), aad.size(), cipher.data(), cipher.size(), tag, out.data()));
  out.pop_back();
  EXPECT_EQ(out, plain);
}

INSTANTIATE_TEST_SUITE_P(Crypto, GcmVector, ::testing::ValuesIn(kGcmCases),
                         [](const auto& param) { return std::string(param.param.label); });

}  // namespace
}  // namespace plat
