// The MD5 message digest (RFC 1321).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

class CMessageDigest5 {
 public:
  static constexpr std::size_t kDigestSize = 16;

  CMessageDigest5() { Init(); }
  void Init();
  void Update(const void* data, std::size_t size);
  // Ends the digest and writes its 16 bytes; the object must be Init()ed
  // again before further use.
  void Final(uint8_t digest[kDigestSize]);

  // The digest of data as 32 upper-case hexadecimal digits.
  static std::string HexDigest(const void* data, std::size_t size);

 private:
  void Transform(const uint8_t block[64]);

  uint32_t state_[4];
  uint64_t bitCount_;
  uint8_t buffer_[64];
};
