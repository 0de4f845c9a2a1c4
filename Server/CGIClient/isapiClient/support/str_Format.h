// printf-style formatting into a caller's fixed buffer, for UTF-16 and
// narrow text, with the Windows conventions of the trace lines: in a wide
// format %s is a wide string and %S a narrow one (the other way round in a
// narrow format); %d, %u and %x take 32-bit values unless the length says
// 64 (ll, I64).
//
// Arguments are captured with their types, so a mismatch between a format
// and its arguments prints something visible instead of reading garbage.
// Nothing is allocated on the heap.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace fmt16 {

struct Arg {
  enum class Kind : uint8_t { kNone, kSigned, kUnsigned, kWide, kNarrow, kDouble, kPointer };
  Kind kind = Kind::kNone;
  uint8_t bytes = 0;  // width of an integer argument
  union {
    int64_t i;
    uint64_t u;
    const char16_t* w;
    const char* n;
    double d;
    const void* p;
  };
  Arg() : i(0) {}
};

template <std::signed_integral T>
Arg MakeArg(T v) {
  Arg a;
  a.kind = Arg::Kind::kSigned;
  a.bytes = sizeof(T);
  a.i = v;
  return a;
}
template <std::unsigned_integral T>
Arg MakeArg(T v) {
  Arg a;
  a.kind = Arg::Kind::kUnsigned;
  a.bytes = sizeof(T);
  a.u = v;
  return a;
}
template <typename T>
  requires std::is_enum_v<T>
Arg MakeArg(T v) {
  return MakeArg(static_cast<std::underlying_type_t<T>>(v));
}
inline Arg MakeArg(char16_t c) { return MakeArg(static_cast<uint16_t>(c)); }
inline Arg MakeArg(const char16_t* s) {
  Arg a;
  a.kind = Arg::Kind::kWide;
  a.w = s;
  return a;
}
inline Arg MakeArg(const char* s) {
  Arg a;
  a.kind = Arg::Kind::kNarrow;
  a.n = s;
  return a;
}
inline Arg MakeArg(const std::u16string& s) { return MakeArg(s.c_str()); }
inline Arg MakeArg(const std::string& s) { return MakeArg(s.c_str()); }
inline Arg MakeArg(double d) {
  Arg a;
  a.kind = Arg::Kind::kDouble;
  a.d = d;
  return a;
}
inline Arg MakeArg(const void* p) {
  Arg a;
  a.kind = Arg::Kind::kPointer;
  a.p = p;
  return a;
}
// string_view has no terminator to hand on; pass .data() of a terminated text.
Arg MakeArg(std::u16string_view) = delete;
Arg MakeArg(std::string_view) = delete;

// Formats into out (capacity units, terminator included). Output that does
// not fit is cut; out always ends with a terminator. Returns the units
// written before the terminator.
std::size_t FormatArgs(char16_t* out, std::size_t capacity, const char16_t* format, const Arg* args,
                       std::size_t count);
std::size_t FormatArgs(char* out, std::size_t capacity, const char* format, const Arg* args,
                       std::size_t count);

template <typename Char, typename... Args>
std::size_t Format(Char* out, std::size_t capacity, const Char* format, const Args&... args) {
  const Arg captured[sizeof...(Args) + 1] = {MakeArg(args)...};
  return FormatArgs(out, capacity, format, captured, sizeof...(Args));
}

}  // namespace fmt16
