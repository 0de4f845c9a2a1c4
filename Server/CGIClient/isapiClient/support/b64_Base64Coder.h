// Base64 with the standard alphabet of RFC 4648. Encoding pads with "=" and
// breaks no lines; decoding takes padded or unpadded text, skips CR, LF,
// blanks and tabs, and refuses anything else outside the alphabet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class Base64Coder {
 public:
  static std::string Encode(const void* data, std::size_t size);
  // False for text that is not base64; out is then left empty.
  static bool Decode(std::string_view text, std::vector<uint8_t>* out);
};
