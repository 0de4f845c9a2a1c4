#include "str_Format.h"

#include <cstdio>
#include <cstring>
#include <type_traits>

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

struct Directive {
  bool left = false, zero = false, plus = false, space = false, alternate = false;
  int width = 0;
  int precision = -1;
  int length = 0;  // bytes an integer is taken as: 1, 2, 4 or 8; 0 = as given, up to 4
  char conversion = 0;
};

// Pads a run of units produced by emit(count) to the directive's width.
template <typename Char, typename Emit>
void Pad(Sink<Char>& sink, const Directive& d, int length, Emit emit) {
  int pad = d.width > length ? d.width - length : 0;
  if (!d.left) sink.Repeat(Char(' '), pad);
  emit();
  if (d.left) sink.Repeat(Char(' '), pad);
}

uint64_t Truncate(uint64_t value, int bytes) {
  return bytes >= 8 ? value : value & ((uint64_t{1} << (bytes * 8)) - 1);
}

// The integer as the conversion sees it, printf-style: a 32-bit conversion
// of a 64-bit value keeps the low 32 bits.
void IntegerValue(const Arg& arg, const Directive& d, bool isSigned, bool* negative, uint64_t* magnitude) {
  int bytes = d.length ? d.length : (arg.bytes > 4 ? 4 : (arg.bytes ? arg.bytes : 4));
  if (d.length == 0 && arg.bytes < 4) bytes = 4;
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
void PutInteger(Sink<Char>& sink, const Directive& d, const Arg& arg) {
  char c = d.conversion;
  bool isSigned = c == 'd' || c == 'i';
  unsigned base = (c == 'x' || c == 'X' || c == 'p') ? 16 : c == 'o' ? 8 : 10;
  bool negative = false;
  uint64_t value = 0;
  IntegerValue(arg, d, isSigned, &negative, &value);
  const char* digitSet = c == 'x' ? "0123456789abcdef" : "0123456789ABCDEF";
  char digits[24];
  int n = 0;
  do {
    digits[n++] = digitSet[value % base];
    value /= base;
  } while (value != 0);
  if (d.precision == 0 && n == 1 && digits[0] == '0') n = 0;
  int zeros = d.precision > n ? d.precision - n : 0;
  char sign = negative ? '-' : d.plus && isSigned ? '+' : d.space && isSigned ? ' ' : 0;
  int body = n + zeros + (sign ? 1 : 0);
  if (d.zero && !d.left && d.precision < 0 && d.width > body) {
    zeros += d.width - body;
    body = d.width;
  }
  Pad(sink, d, body, [&] {
    if (sign) sink.Put(Char(sign));
    sink.Repeat(Char('0'), zeros);
    while (n > 0) sink.Put(Char(digits[--n]));
  });
}

template <typename Unit>
std::size_t Length(const Unit* s, int precision) {
  std::size_t n = 0;
  while (s[n] && (precision < 0 || n < static_cast<std::size_t>(precision))) ++n;
  return n;
}

// One piece of a string of the other width, through the ANSI code page.
int Convert(const char* in, int n, char16_t* out, int room) {
  return plat::MultiByteToWide(plat::kCpAcp, 0, in, n, out, room);
}
int Convert(const char16_t* in, int n, char* out, int room) {
  return plat::WideToMultiByte(plat::kCpAcp, 0, in, n, out, room);
}

// A string of either width into a sink of either width; a string of the
// other width is converted in chunks on the stack.
template <typename Char, typename Unit>
void PutString(Sink<Char>& sink, const Directive& d, const Unit* s) {
  const std::size_t n = Length(s, d.precision);
  Pad(sink, d, static_cast<int>(n), [&] {
    if constexpr (std::is_same_v<Char, Unit>) {
      for (std::size_t i = 0; i < n; ++i) sink.Put(s[i]);
    } else {
      Char chunk[512];
      for (std::size_t done = 0; done < n;) {
        const std::size_t take = n - done < 128 ? n - done : 128;
        const int got = Convert(s + done, static_cast<int>(take), chunk, 512);
        for (int i = 0; i < got; ++i) sink.Put(chunk[i]);
        done += take;
      }
    }
  });
}

template <typename Char>
void PutAscii(Sink<Char>& sink, const Directive& d, const char* text) {
  Directive plain = d;
  plain.precision = -1;
  PutString(sink, plain, text);
}

template <typename Char>
void PutArgument(Sink<Char>& sink, const Directive& d, const Arg* arg) {
  if (arg == nullptr) {
    PutAscii(sink, d, "(missing)");
    return;
  }
  switch (d.conversion) {
    case 'd': case 'i': case 'u': case 'x': case 'X': case 'o': case 'p':
      if (arg->kind == Arg::Kind::kWide || arg->kind == Arg::Kind::kNarrow) break;
      if (arg->kind == Arg::Kind::kDouble) {
        Arg whole = MakeArg(static_cast<int64_t>(arg->d));
        PutInteger(sink, d, whole);
        return;
      }
      PutInteger(sink, d, *arg);
      return;
    case 'c': {
      Char c = static_cast<Char>(arg->u);
      Pad(sink, d, 1, [&] { sink.Put(c); });
      return;
    }
    case 'f': case 'g': case 'e': case 'F': case 'G': case 'E': {
      char text[64];
      double value = arg->kind == Arg::Kind::kDouble ? arg->d : static_cast<double>(arg->i);
      int precision = d.precision < 0 ? 6 : (d.precision > 30 ? 30 : d.precision);
      switch (d.conversion) {
        case 'e': case 'E': std::snprintf(text, sizeof text, "%.*e", precision, value); break;
        case 'g': case 'G': std::snprintf(text, sizeof text, "%.*g", precision, value); break;
        default: std::snprintf(text, sizeof text, "%.*f", precision, value); break;
      }
      PutAscii(sink, d, text);
      return;
    }
    default:
      break;
  }
  // A string conversion, or a string given where a number was asked for.
  if (arg->kind == Arg::Kind::kWide) {
    PutString(sink, d, arg->w ? arg->w : u"(null)");
  } else if (arg->kind == Arg::Kind::kNarrow) {
    PutString(sink, d, arg->n ? arg->n : "(null)");
  } else {
    Directive asNumber = d;
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
    Directive d;
    for (;; ++f) {
      if (*f == Char('-')) d.left = true;
      else if (*f == Char('0')) d.zero = true;
      else if (*f == Char('+')) d.plus = true;
      else if (*f == Char(' ')) d.space = true;
      else if (*f == Char('#')) d.alternate = true;
      else break;
    }
    if (*f == Char('*')) {
      d.width = takeInt();
      if (d.width < 0) {
        d.left = true;
        d.width = -d.width;
      }
      ++f;
    } else {
      while (*f >= Char('0') && *f <= Char('9')) d.width = d.width * 10 + (*f++ - Char('0'));
    }
    if (*f == Char('.')) {
      ++f;
      d.precision = 0;
      if (*f == Char('*')) {
        d.precision = takeInt();
        ++f;
      } else {
        while (*f >= Char('0') && *f <= Char('9')) d.precision = d.precision * 10 + (*f++ - Char('0'));
      }
    }
    // Length: h, hh, l (32-bit, as on Windows), ll, I64, I32, z. Whether a
    // string is wide or narrow (%s, %S, %ls, %hs) is known from the argument.
    for (;; ++f) {
      if (*f == Char('h')) {
        d.length = d.length == 2 ? 1 : 2;
      } else if (*f == Char('l')) {
        d.length = d.length == 4 ? 8 : 4;
      } else if (*f == Char('w')) {
      } else if (*f == Char('z') || *f == Char('j') || *f == Char('t')) {
        d.length = 8;
      } else if (*f == Char('I') && f[1] == Char('6') && f[2] == Char('4')) {
        d.length = 8;
        f += 2;
      } else if (*f == Char('I') && f[1] == Char('3') && f[2] == Char('2')) {
        d.length = 4;
        f += 2;
      } else {
        break;
      }
    }
    if (*f == Char(0)) {  // a format that ends inside a conversion
      for (const Char* p = start; *p; ++p) sink.Put(*p);
      break;
    }
    d.conversion = static_cast<char>(*f);
    if (d.conversion == 'p') {
      d.length = sizeof(void*);
      if (d.precision < 0) d.precision = 2 * static_cast<int>(sizeof(void*));
    }
    if (d.conversion == 'n') continue;  // never write through an argument
    PutArgument(sink, d, next < count ? &args[next] : nullptr);
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
