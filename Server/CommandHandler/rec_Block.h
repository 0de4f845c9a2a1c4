// Reading fixed records: little-endian integers and UTF-16LE texts
// terminated inside their field.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace rec {

inline int64_t ReadLE(const uint8_t* at, std::size_t bytes, bool isSigned) {
  uint32_t value = 0;
  for (std::size_t i = 0; i < bytes; ++i) value |= static_cast<uint32_t>(at[i]) << (8 * i);
  if (isSigned && bytes == 4) return static_cast<int32_t>(value);
  return value;
}

// At most `units` code units; stops at the first NUL.
inline std::u16string ReadUnits(const uint8_t* at, std::size_t units) {
  std::u16string text;
  for (std::size_t i = 0; i < units; ++i) {
    const char16_t c = static_cast<char16_t>(at[2 * i] | (at[2 * i + 1] << 8));
    if (c == 0) break;
    text.push_back(c);
  }
  return text;
}

}  // namespace rec
