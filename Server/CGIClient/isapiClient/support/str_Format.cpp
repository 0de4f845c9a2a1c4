#include "str_Format.h"

#include <cstdio>
#include <cstring>

#include "platform/codepage.h"

namespace fmt16 {
namespace {

// Appends to a fixed buffer, dropping what does not fit.
template <typename Char>
class Sink {
 public:
  Sink(Char* out, std::size_t capacity) : out_(out), capacity_(capacity) {}
  void Put(Char c) {
    if (used_ + 1 < capacity_) out_[used_++] = c;
  }
  void Repeat(Char c, int n) {
    for (int i = 0; i < n; ++i) Put(c);
  }
  std::size_t Finish() {
    if (capacity_ > 0) out_[used_] = Char(0);
    return used_;
  }

 private:
  Char* out_;
  std::size_t capacity_;
  std::size_t used_ = 0;
};

struct Spec {
  bool left = false, zero = false, plus = false, space = false, alternate = false;
  int width = 0;
  int precision = -1;
  int length = 0;  // bytes an integer is taken as: 1, 2, 4 or 8; 0 = as given, up to 4
  char conversion = 0;
};

// Pads a run of units produced by emit(count) to the spec's width.
template <typename Char, typename Emit>
void Pad(Sink<Char>& sink, const Spec& spec, int length, Emit emit) {
  int pad = spec.width > length ? spec.width - length : 0;
  if (!spec.left) sink.Repeat(Char(' '), pad);
  emit();
  if (spec.left) sink.Repeat(Char(' '), pad);
}

uint64_t Truncate(uint64_t value, int bytes) {
  return bytes >= 8 ? value : value & ((uint64_t{1} << (bytes * 8)) - 1);
}

// The integer as the conversion sees it, printf-style: a 32-bit conversion
// of a 64-bit value keeps the low 32 bits.
void IntegerValue(const Arg& arg, const Spec& spec, bool isSigned, bool* negative, uint64_t* magnitude) {
  int bytes = spec.length ? spec.length : (arg.bytes > 4 ? 4 : (arg.bytes ? arg.bytes : 4));
  if (spec.length == 0 && arg.bytes < 4) bytes = 4;
  uint64_t raw = arg.kind == Arg::Kind::kPointer ? reinterpret_cast<uintptr_t>(arg.p) : arg.u;
  raw = Truncate(raw, bytes);
  *negative = false;
  if (isSigned && bytes < 8 && (raw >> (bytes * 8 - 1)) & 1) {
    *negative = true;
    *magnitude = (Truncate(~raw, bytes)) + 1;
  } else if (isSigned && bytes == 8 && static_cast<int64_t>(raw) < 0) {
    *negative = true;
    *magnitude = ~raw + 1;
  } else {
    *magnitude = raw;
  }
}

template <typename Char>
void PutInteger(Sink<Char>& sink, const Spec& spec, const Arg& arg) {
  char c = spec.conversion;
  bool isSigned = c == 'd' || c == 'i';
  unsigned base = (c == 'x' || c == 'X' || c == 'p') ? 16 : c == 'o' ? 8 : 10;
  bool negative = false;
  uint64_t value = 0;
  IntegerValue(arg, spec, isSigned, &negative, &value);
  const char* digitSet = c == 'x' ? "0123456789abcdef" : "0123456789ABCDEF";
  char digits[24];
  int n = 0;
  do {
    digits[n++] = digitSet[value % base];
    value /= base;
  } while (value != 0);
  if (spec.precision == 0 && n == 1 && digits[0] == '0') n = 0;
  int zeros = spec.precision > n ? spec.precision - n : 0;
  char sign = negative ? '-' : spec.plus && isSigned ? '+' : spec.space && isSigned ? ' ' : 0;
  int body = n + zeros + (sign ? 1 : 0);
  if (spec.zero && !spec.left && spec.precision < 0 && spec.width > body) {
    zeros += spec.width - body;
    body = spec.width;
  }
  Pad(sink, spec, body, [&] {
    if (sign) sink.Put(Char(sign));
    sink.Repeat(Char('0'), zeros);
    while (n > 0) sink.Put(Char(digits[--n]));
  });
}

std::size_t WideLength(const char16_t* s, int precision) {
  std::size_t n = 0;
  while (s[n] && (precision < 0 || n < static_cast<std::size_t>(precision))) ++n;
  return n;
}

std::size_t NarrowLength(const char* s, int precision) {
  std::size_t n = 0;
  while (s[n] && (precision < 0 || n < static_cast<std::size_t>(precision))) ++n;
  return n;
}

// Strings of the other width go through the ANSI code page, in chunks on
// the stack.
void PutString(Sink<char16_t>& sink, const Spec& spec, const char* s) {
  std::size_t n = NarrowLength(s, spec.precision);
  Pad(sink, spec, static_cast<int>(n), [&] {
    char16_t chunk[256];
    for (std::size_t done = 0; done < n;) {
      std::size_t take = n - done < 128 ? n - done : 128;
      int got = plat::MultiByteToWide(plat::kCpAcp, 0, s + done, static_cast<int>(take), chunk, 256);
      for (int i = 0; i < got; ++i) sink.Put(chunk[i]);
      done += take;
    }
  });
}
void PutString(Sink<char16_t>& sink, const Spec& spec, const char16_t* s) {
  std::size_t n = WideLength(s, spec.precision);
  Pad(sink, spec, static_cast<int>(n), [&] {
    for (std::size_t i = 0; i < n; ++i) sink.Put(s[i]);
  });
}
void PutString(Sink<char>& sink, const Spec& spec, const char* s) {
  std::size_t n = NarrowLength(s, spec.precision);
  Pad(sink, spec, static_cast<int>(n), [&] {
    for (std::size_t i = 0; i < n; ++i) sink.Put(s[i]);
  });
}
void PutString(Sink<char>& sink, const Spec& spec, const char16_t* s) {
  std::size_t n = WideLength(s, spec.precision);
  Pad(sink, spec, static_cast<int>(n), [&] {
    char chunk[512];
    for (std::size_t done = 0; done < n;) {
      std::size_t take = n - done < 128 ? n - done : 128;
      int got = plat::WideToMultiByte(plat::kCpAcp, 0, s + done, static_cast<int>(take), chunk, 512);
      for (int i = 0; i < got; ++i) sink.Put(chunk[i]);
      done += take;
    }
  });
}

template <typename Char>
void PutAscii(Sink<Char>& sink, const Spec& spec, const char* text) {
  Spec plain = spec;
  plain.precision = -1;
  PutString(sink, plain, text);
}

template <typename Char>
void PutArgument(Sink<Char>& sink, const Spec& spec, const Arg* arg) {
  if (arg == nullptr) {
    PutAscii(sink, spec, "(missing)");
    return;
  }
  switch (spec.conversion) {
    case 'd': case 'i': case 'u': case 'x': case 'X': case 'o': case 'p':
      if (arg->kind == Arg::Kind::kWide || arg->kind == Arg::Kind::kNarrow) break;
      if (arg->kind == Arg::Kind::kDouble) {
        Arg whole = MakeArg(static_cast<int64_t>(arg->d));
        PutInteger(sink, spec, whole);
        return;
      }
      PutInteger(sink, spec, *arg);
      return;
    case 'c': {
      Char c = static_cast<Char>(arg->u);
      Pad(sink, spec, 1, [&] { sink.Put(c); });
      return;
    }
    case 'f': case 'g': case 'e': case 'F': case 'G': case 'E': {
      char text[64];
      double value = arg->kind == Arg::Kind::kDouble ? arg->d : static_cast<double>(arg->i);
      int precision = spec.precision < 0 ? 6 : (spec.precision > 30 ? 30 : spec.precision);
      switch (spec.conversion) {
        case 'e': case 'E': std::snprintf(text, sizeof text, "%.*e", precision, value); break;
        case 'g': case 'G': std::snprintf(text, sizeof text, "%.*g", precision, value); break;
        default: std::snprintf(text, sizeof text, "%.*f", precision, value); break;
      }
      PutAscii(sink, spec, text);
      return;
    }
    default:
      break;
  }
  // A string conversion, or a string given where a number was asked for.
  if (arg->kind == Arg::Kind::kWide) {
    PutString(sink, spec, arg->w ? arg->w : u"(null)");
  } else if (arg->kind == Arg::Kind::kNarrow) {
    PutString(sink, spec, arg->n ? arg->n : "(null)");
  } else {
    Spec asNumber = spec;
    asNumber.conversion = arg->kind == Arg::Kind::kUnsigned ? 'u' : 'd';
    PutInteger(sink, asNumber, *arg);
  }
}

template <typename Char>
std::size_t Run(Char* out, std::size_t capacity, const Char* format, const Arg* args, std::size_t count) {
  Sink<Char> sink(out, capacity);
  std::size_t next = 0;
  auto takeInt = [&]() -> int {
    if (next >= count) return 0;
    return static_cast<int>(args[next++].i);
  };
  static constexpr Char kEmpty[1] = {};
  for (const Char* f = format ? format : kEmpty; *f; ++f) {
    if (*f != Char('%')) {
      sink.Put(*f);
      continue;
    }
    const Char* start = f++;
    if (*f == Char('%')) {
      sink.Put(Char('%'));
      continue;
    }
    Spec spec;
    for (;; ++f) {
      if (*f == Char('-')) spec.left = true;
      else if (*f == Char('0')) spec.zero = true;
      else if (*f == Char('+')) spec.plus = true;
      else if (*f == Char(' ')) spec.space = true;
      else if (*f == Char('#')) spec.alternate = true;
      else break;
    }
    if (*f == Char('*')) {
      spec.width = takeInt();
      if (spec.width < 0) {
        spec.left = true;
        spec.width = -spec.width;
      }
      ++f;
    } else {
      while (*f >= Char('0') && *f <= Char('9')) spec.width = spec.width * 10 + (*f++ - Char('0'));
    }
    if (*f == Char('.')) {
      ++f;
      spec.precision = 0;
      if (*f == Char('*')) {
        spec.precision = takeInt();
        ++f;
      } else {
        while (*f >= Char('0') && *f <= Char('9')) spec.precision = spec.precision * 10 + (*f++ - Char('0'));
      }
    }
    // Length: h, hh, l (32-bit, as on Windows), ll, I64, I32, z. Whether a
    // string is wide or narrow (%s, %S, %ls, %hs) is known from the argument.
    for (;; ++f) {
      if (*f == Char('h')) {
        spec.length = spec.length == 2 ? 1 : 2;
      } else if (*f == Char('l')) {
        spec.length = spec.length == 4 ? 8 : 4;
      } else if (*f == Char('w')) {
      } else if (*f == Char('z') || *f == Char('j') || *f == Char('t')) {
        spec.length = 8;
      } else if (*f == Char('I') && f[1] == Char('6') && f[2] == Char('4')) {
        spec.length = 8;
        f += 2;
      } else if (*f == Char('I') && f[1] == Char('3') && f[2] == Char('2')) {
        spec.length = 4;
        f += 2;
      } else {
        break;
      }
    }
    if (*f == Char(0)) {  // a format that ends inside a conversion
      for (const Char* p = start; *p; ++p) sink.Put(*p);
      break;
    }
    spec.conversion = static_cast<char>(*f);
    if (spec.conversion == 'p') {
      spec.length = sizeof(void*);
      if (spec.precision < 0) spec.precision = 2 * static_cast<int>(sizeof(void*));
    }
    if (spec.conversion == 'n') continue;  // never write through an argument
    PutArgument(sink, spec, next < count ? &args[next] : nullptr);
    ++next;
  }
  return sink.Finish();
}

}  // namespace

std::size_t FormatArgs(char16_t* out, std::size_t capacity, const char16_t* format, const Arg* args,
                       std::size_t count) {
  return Run(out, capacity, format, args, count);
}

std::size_t FormatArgs(char* out, std::size_t capacity, const char* format, const Arg* args,
                       std::size_t count) {
  return Run(out, capacity, format, args, count);
}

}  // namespace fmt16
