#include "platform/text.h"

#include <cstdint>
#include <cstdlib>

namespace plat {
namespace {

// Appends the UTF-8 form of one code point through `put`, which returns
// false when the output is full.
template <typename Put>
bool EncodeUtf8(char32_t cp, Put&& put) {
  if (cp < 0x80) return put(static_cast<char>(cp));
  if (cp < 0x800) {
    return put(static_cast<char>(0xC0 | (cp >> 6))) &&
           put(static_cast<char>(0x80 | (cp & 0x3F)));
  }
  if (cp < 0x10000) {
    return put(static_cast<char>(0xE0 | (cp >> 12))) &&
           put(static_cast<char>(0x80 | ((cp >> 6) & 0x3F))) &&
           put(static_cast<char>(0x80 | (cp & 0x3F)));
  }
  return put(static_cast<char>(0xF0 | (cp >> 18))) &&
         put(static_cast<char>(0x80 | ((cp >> 12) & 0x3F))) &&
         put(static_cast<char>(0x80 | ((cp >> 6) & 0x3F))) &&
         put(static_cast<char>(0x80 | (cp & 0x3F)));
}

template <typename Put>
bool Utf16ToUtf8(std::u16string_view text, Put&& put) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t cp = text[i];
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD;
    }
    if (!EncodeUtf8(cp, put)) return false;
  }
  return true;
}

}  // namespace

std::size_t U16Length(const char16_t* text) {
  std::size_t n = 0;
  if (text) {
    while (text[n]) ++n;
  }
  return n;
}

std::string ToUtf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  Utf16ToUtf8(text, [&out](char c) {
    out.push_back(c);
    return true;
  });
  return out;
}

bool ToUtf8(std::u16string_view text, char* out, std::size_t capacity) {
  if (capacity == 0) return false;
  std::size_t used = 0;
  bool fits = Utf16ToUtf8(text, [&](char c) {
    if (used + 1 >= capacity) return false;
    out[used++] = c;
    return true;
  });
  out[fits ? used : 0] = '\0';
  return fits;
}

std::u16string FromUtf8(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    auto lead = static_cast<uint8_t>(text[i]);
    int extra = lead < 0x80 ? 0 : (lead >> 5) == 6 ? 1 : (lead >> 4) == 14 ? 2 : (lead >> 3) == 30 ? 3 : -1;
    char32_t cp = extra == 0 ? lead : extra == 1 ? (lead & 0x1F) : extra == 2 ? (lead & 0x0F) : (lead & 0x07);
    bool ok = extra >= 0 && i + static_cast<std::size_t>(extra) < text.size() + 0;
    for (int k = 1; ok && k <= extra; ++k) {
      auto b = static_cast<uint8_t>(text[i + static_cast<std::size_t>(k)]);
      ok = (b & 0xC0) == 0x80;
      cp = (cp << 6) | (b & 0x3F);
    }
    if (!ok || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      out.push_back(u'\uFFFD');
      ++i;
      continue;
    }
    i += static_cast<std::size_t>(extra) + 1;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(cp));
    }
  }
  return out;
}

std::u16string Widen(std::string_view ascii) {
  return std::u16string(ascii.begin(), ascii.end());
}

}  // namespace plat

namespace plat {

int32_t StrToLong(const char* text) {
  if (text == nullptr) return 0;
  // strtoll saturates at the 64-bit bounds, which lie beyond the 32-bit
  // ones, so clamping its result gives what a 32-bit strtol gives.
  const long long value = std::strtoll(text, nullptr, 10);
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return static_cast<int32_t>(value);
}

}  // namespace plat
