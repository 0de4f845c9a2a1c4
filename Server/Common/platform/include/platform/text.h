// Small UTF-16 helpers for code that holds text as char16_t.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace plat {

std::size_t U16Length(const char16_t* text);

// Lossless UTF-16 <-> UTF-8 for names and paths handed to POSIX calls
// (unpaired surrogates become U+FFFD). Not a code-page conversion.
std::string ToUtf8(std::u16string_view text);
std::u16string FromUtf8(std::string_view text);
// Into a caller's buffer, for paths built without the heap; false when the
// result (with its terminator) does not fit.
bool ToUtf8(std::u16string_view text, char* out, std::size_t capacity);

// The C library's strtol (base 10) as it behaves where long is 32 bits, as
// on Windows: leading blanks, a sign, the digits that follow; a value out of
// range saturates at -2147483648 or 2147483647; no digits give 0. Numbers a
// client sends thus mean the same on every platform.
int32_t StrToLong(const char* text);

// ASCII literal to UTF-16, for tests and messages.
std::u16string Widen(std::string_view ascii);

// Equal but for the case of the ASCII letters (names, headers, suffixes).
template <typename Char>
bool EqualsIgnoringAsciiCase(std::basic_string_view<Char> a, std::basic_string_view<Char> b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    Char x = a[i] >= Char('A') && a[i] <= Char('Z') ? Char(a[i] + 32) : a[i];
    Char y = b[i] >= Char('A') && b[i] <= Char('Z') ? Char(b[i] + 32) : b[i];
    if (x != y) return false;
  }
  return true;
}
inline bool EqualsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  return EqualsIgnoringAsciiCase<char>(a, b);
}
inline bool EqualsIgnoringAsciiCase(std::u16string_view a, std::u16string_view b) {
  return EqualsIgnoringAsciiCase<char16_t>(a, b);
}

}  // namespace plat
