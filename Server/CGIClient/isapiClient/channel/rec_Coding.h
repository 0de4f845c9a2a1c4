// Fixed record layouts: little-endian integers and zero-terminated texts at
// fixed offsets of a zeroed block. The extension builds its records with
// these and the command-handler service reads them back with the same
// calls, so each layout is written once and the two ends cannot drift.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace rec {

enum class Kind : uint8_t { kU8, kU16, kU32, kI32, kText, kNarrow };

// One field of a block: where it lies, how wide it is (bytes) and what it
// holds. A kText field holds size / 2 UTF-16LE units, a kNarrow field size
// bytes; either keeps its terminator inside the field.
struct Field {
  const char* name;
  uint16_t offset;
  uint16_t size;
  Kind kind;
};

// `bytes` (1, 2 or 4) of value, little-endian: wider values are truncated.
inline void PutLE(uint8_t* at, std::size_t bytes, uint32_t value) {
  for (std::size_t i = 0; i < bytes; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

inline uint32_t GetLE(const uint8_t* at, std::size_t bytes) {
  uint32_t value = 0;
  for (std::size_t i = 0; i < bytes; ++i) value |= static_cast<uint32_t>(at[i]) << (8 * i);
  return value;
}

// A text into a field of `units` code units: cut to units - 1 characters (or
// at an embedded NUL), then the terminator and zeros to the field's end.
inline void PutText(uint8_t* at, std::size_t units, std::u16string_view text) {
  std::size_t n = 0;
  while (n + 1 < units && n < text.size() && text[n] != 0) ++n;
  for (std::size_t i = 0; i < units; ++i) PutLE(at + 2 * i, 2, i < n ? text[i] : 0);
}

// `text` cut to at most `width` units, at its first NUL, and never between
// the two halves of a surrogate pair.
inline std::u16string CutText(std::u16string_view text, std::size_t width) {
  std::size_t n = 0;
  while (n < width && n < text.size() && text[n] != 0) ++n;
  // A high surrogate whose partner was cut off would be a lone half.
  if (n > 0 && n < text.size() && text[n - 1] >= 0xD800 && text[n - 1] <= 0xDBFF) --n;
  return std::u16string(text.substr(0, n));
}

// At most `units` code units; stops at the first NUL.
inline std::u16string GetText(const uint8_t* at, std::size_t units) {
  std::u16string text;
  for (std::size_t i = 0; i < units; ++i) {
    const auto c = static_cast<char16_t>(GetLE(at + 2 * i, 2));
    if (c == 0) break;
    text.push_back(c);
  }
  return text;
}

// The narrow forms, byte for byte.
inline void PutNarrow(uint8_t* at, std::size_t bytes, std::string_view text) {
  std::size_t n = 0;
  while (n + 1 < bytes && n < text.size() && text[n] != 0) ++n;
  for (std::size_t i = 0; i < bytes; ++i) at[i] = i < n ? static_cast<uint8_t>(text[i]) : 0;
}

inline std::string GetNarrow(const uint8_t* at, std::size_t bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes && at[i] != 0; ++i) text.push_back(static_cast<char>(at[i]));
  return text;
}

// A numeric field of a block: written truncated to its width, read back
// unsigned (kI32 signed).
inline void PutNumber(uint8_t* block, const Field& f, int64_t value) {
  PutLE(block + f.offset, f.size, static_cast<uint32_t>(value));
}

inline int64_t GetNumber(const uint8_t* block, const Field& f) {
  const uint32_t value = GetLE(block + f.offset, f.size);
  return f.kind == Kind::kI32 ? int64_t{static_cast<int32_t>(value)} : int64_t{value};
}

constexpr std::size_t WidthOf(Kind kind) {
  switch (kind) {
    case Kind::kU8:
      return 1;
    case Kind::kU16:
      return 2;
    case Kind::kU32:
    case Kind::kI32:
      return 4;
    default:
      return 0;
  }
}

// A layout is sound when its fields come in block order from `start` on,
// none overlapping and none past the block's end, each number as wide as
// its kind and each wide text a whole number of units. Checked where a
// layout is declared, when it compiles.
template <std::size_t N>
constexpr bool LayoutIsSound(const Field (&fields)[N], std::size_t blockSize, std::size_t start = 0) {
  std::size_t end = start;
  for (const Field& f : fields) {
    if (f.offset < end || f.size == 0) return false;
    const std::size_t width = WidthOf(f.kind);
    if (width != 0 && f.size != width) return false;
    if (f.kind == Kind::kText && f.size % 2 != 0) return false;
    end = std::size_t{f.offset} + f.size;
  }
  return end <= blockSize;
}

}  // namespace rec
