#include "md5_MessageDigest5.h"

#include <cstring>

#include "hex_Format.h"

namespace {

constexpr uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

constexpr int kShift[64] = {7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
                            5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,
                            4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
                            6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};

uint32_t RotateLeft(uint32_t x, int n) { return x << n | x >> (32 - n); }

uint32_t LoadLE(const uint8_t* p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

}  // namespace

void CMessageDigest5::Init() {
  state_[0] = 0x67452301;
  state_[1] = 0xefcdab89;
  state_[2] = 0x98badcfe;
  state_[3] = 0x10325476;
  bitCount_ = 0;
}

void CMessageDigest5::Transform(const uint8_t block[64]) {
  uint32_t m[16];
  for (int i = 0; i < 16; ++i) m[i] = LoadLE(block + 4 * i);
  uint32_t a = state_[0], b = state_[1], c = state_[2], d = state_[3];
  for (int i = 0; i < 64; ++i) {
    uint32_t f;
    int g;
    if (i < 16) {
      f = (b & c) | (~b & d);
      g = i;
    } else if (i < 32) {
      f = (d & b) | (~d & c);
      g = (5 * i + 1) % 16;
    } else if (i < 48) {
      f = b ^ c ^ d;
      g = (3 * i + 5) % 16;
    } else {
      f = c ^ (b | ~d);
      g = (7 * i) % 16;
    }
    uint32_t next = b + RotateLeft(a + f + kSine[i] + m[g], kShift[i]);
    a = d;
    d = c;
    c = b;
    b = next;
  }
  state_[0] += a;
  state_[1] += b;
  state_[2] += c;
  state_[3] += d;
}

void CMessageDigest5::Update(const void* data, std::size_t size) {
  const auto* in = static_cast<const uint8_t*>(data);
  std::size_t used = static_cast<std::size_t>((bitCount_ / 8) % 64);
  bitCount_ += static_cast<uint64_t>(size) * 8;
  if (used > 0) {
    std::size_t take = 64 - used < size ? 64 - used : size;
    std::memcpy(buffer_ + used, in, take);
    in += take;
    size -= take;
    if (used + take < 64) return;
    Transform(buffer_);
  }
  for (; size >= 64; in += 64, size -= 64) Transform(in);
  if (size > 0) std::memcpy(buffer_, in, size);
}

void CMessageDigest5::Final(uint8_t digest[kDigestSize]) {
  uint8_t length[8];
  for (int i = 0; i < 8; ++i) length[i] = static_cast<uint8_t>(bitCount_ >> (8 * i));
  static const uint8_t kPadding[64] = {0x80};
  std::size_t used = static_cast<std::size_t>((bitCount_ / 8) % 64);
  Update(kPadding, used < 56 ? 56 - used : 120 - used);
  Update(length, 8);
  for (int i = 0; i < 4; ++i) {
    for (int k = 0; k < 4; ++k) digest[4 * i + k] = static_cast<uint8_t>(state_[i] >> (8 * k));
  }
}

std::string CMessageDigest5::HexDigest(const void* data, std::size_t size) {
  CMessageDigest5 md5;
  md5.Update(data, size);
  uint8_t digest[kDigestSize];
  md5.Final(digest);
  return HexFormat::Bytes(digest, kDigestSize);
}
