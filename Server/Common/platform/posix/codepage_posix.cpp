// Code-page conversion over iconv, with the answers of the Win32 calls.
//
// Converters are kept in a small pool and reused: opening one costs heap
// memory and time, and the trace facility converts on every call.
#include <iconv.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include "platform/codepage.h"
#include "platform/errors.h"

namespace plat {
namespace {

constexpr uint32_t kCp1252 = 1252;

// iconv's name for a Windows code page, or false when we know none.
bool IconvName(uint32_t cp, char* name, std::size_t size) {
  if (cp == kCpUtf8) {
    std::snprintf(name, size, "UTF-8");
  } else if (cp == 20127) {
    std::snprintf(name, size, "US-ASCII");
  } else if (cp >= 28591 && cp <= 28606) {
    std::snprintf(name, size, "ISO-8859-%u", cp - 28590);
  } else if (cp >= 1250 && cp <= 1258) {
    std::snprintf(name, size, "WINDOWS-%u", cp);
  } else if (cp == 10000) {
    std::snprintf(name, size, "MACINTOSH");
  } else if (cp >= 100 && cp < 65000) {
    std::snprintf(name, size, "CP%u", cp);
  } else {
    return false;
  }
  return true;
}

struct PooledConverter {
  uint32_t codePage;
  bool toWide;
  iconv_t cd;
};

std::mutex g_poolMutex;
// Reachable for the life of the process: converters are reused, never freed.
std::vector<PooledConverter>* g_pool = new std::vector<PooledConverter>();

class Converter {
 public:
  Converter(uint32_t codePage, bool toWide) : codePage_(codePage), toWide_(toWide) {
    {
      std::lock_guard lock(g_poolMutex);
      for (auto it = g_pool->begin(); it != g_pool->end(); ++it) {
        if (it->codePage == codePage && it->toWide == toWide) {
          cd_ = it->cd;
          g_pool->erase(it);
          return;
        }
      }
    }
    char name[32];
    if (!IconvName(codePage, name, sizeof name)) return;
    cd_ = toWide ? ::iconv_open("UTF-16LE", name) : ::iconv_open(name, "UTF-16LE");
  }
  ~Converter() {
    if (!ok()) return;
    ::iconv(cd_, nullptr, nullptr, nullptr, nullptr);  // back to the initial state
    std::lock_guard lock(g_poolMutex);
    g_pool->push_back(PooledConverter{codePage_, toWide_, cd_});
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  bool ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
  iconv_t get() const { return cd_; }

 private:
  uint32_t codePage_;
  bool toWide_;
  iconv_t cd_ = reinterpret_cast<iconv_t>(-1);
};

// Output sink: writes into the caller's buffer, or only counts when the
// caller asked for the length (capacity 0), using a scratch block.
template <typename Unit>
class Output {
 public:
  Output(Unit* dst, int capacity) : dst_(dst), counting_(capacity == 0), capacity_(capacity) {}

  // Runs iconv into the output; returns the iconv result and errno.
  size_t Convert(iconv_t cd, char** in, size_t* inLeft, int* err) {
    for (;;) {
      Unit* base = counting_ ? scratch_ : dst_ + used_;
      std::size_t room = counting_ ? sizeof scratch_ / sizeof(Unit) : static_cast<std::size_t>(capacity_ - used_);
      char* out = reinterpret_cast<char*>(base);
      size_t outLeft = room * sizeof(Unit);
      size_t r = ::iconv(cd, in, inLeft, &out, &outLeft);
      *err = r == static_cast<size_t>(-1) ? errno : 0;
      used_ += static_cast<int>((room * sizeof(Unit) - outLeft) / sizeof(Unit));
      if (*err == E2BIG && counting_) continue;
      return r;
    }
  }
  bool Put(const Unit* units, int n) {
    if (!counting_ && used_ + n > capacity_) return false;
    if (!counting_) std::memcpy(dst_ + used_, units, static_cast<std::size_t>(n) * sizeof(Unit));
    used_ += n;
    return true;
  }
  int used() const { return used_; }

 private:
  Unit* dst_;
  bool counting_;
  int capacity_;
  int used_ = 0;
  Unit scratch_[256];
};

bool CheckArguments(const void* src, int srcLength, const void* dst, int dstCapacity) {
  if (src == nullptr || srcLength == 0 || srcLength < -1 || dstCapacity < 0 ||
      (dstCapacity > 0 && dst == nullptr) || src == dst) {
    SetLastError(kErrorInvalidParameter);
    return false;
  }
  return true;
}

}  // namespace

uint32_t AnsiCodePage();

namespace {
// The symbolic code pages: CP_ACP, CP_OEMCP (US OEM), CP_MACCP, CP_THREAD_ACP.
uint32_t Resolve(uint32_t codePage) {
  switch (codePage) {
    case 0:
    case 3: return AnsiCodePage();
    case 1: return 437;
    case 2: return 10000;
    default: return codePage;
  }
}
}  // namespace

uint32_t AnsiCodePage() {
  const char* configured = std::getenv("VGCR_CODEPAGE");
  if (configured && *configured) {
    char* end = nullptr;
    unsigned long cp = std::strtoul(configured, &end, 10);
    if (end && *end == '\0' && cp > 0 && cp < 65536) return static_cast<uint32_t>(cp);
  }
  return kCp1252;
}

int MultiByteToWide(uint32_t codePage, uint32_t flags, const char* src, int srcLength,
                    char16_t* dst, int dstCapacity) {
  if (!CheckArguments(src, srcLength, dst, dstCapacity)) return 0;
  codePage = Resolve(codePage);
  if ((codePage == kCpUtf8 && (flags & ~kMbErrInvalidChars)) || (flags & ~0xFu)) {
    SetLastError(kErrorInvalidFlags);
    return 0;
  }
  Converter conv(codePage, true);
  if (!conv.ok()) {
    SetLastError(kErrorInvalidParameter);
    return 0;
  }
  std::size_t length = srcLength == -1 ? std::strlen(src) + 1 : static_cast<std::size_t>(srcLength);
  char* in = const_cast<char*>(src);
  size_t inLeft = length;
  Output<char16_t> out(dst, dstCapacity);
  while (inLeft > 0) {
    int err = 0;
    out.Convert(conv.get(), &in, &inLeft, &err);
    if (err == 0) break;
    if (err == E2BIG) {
      SetLastError(kErrorInsufficientBuffer);
      return 0;
    }
    // EILSEQ or EINVAL: an undecodable byte.
    if (flags & kMbErrInvalidChars) {
      SetLastError(kErrorNoUnicodeTranslation);
      return 0;
    }
    auto byte = static_cast<unsigned char>(*in);
    // Windows-1252's five unassigned bytes decode to the C1 code points.
    char16_t replacement = codePage == kCp1252 ? static_cast<char16_t>(byte) : u'\uFFFD';
    if (!out.Put(&replacement, 1)) {
      SetLastError(kErrorInsufficientBuffer);
      return 0;
    }
    ++in;
    --inLeft;
    ::iconv(conv.get(), nullptr, nullptr, nullptr, nullptr);
  }
  return out.used();
}

int WideToMultiByte(uint32_t codePage, uint32_t flags, const char16_t* src, int srcLength,
                    char* dst, int dstCapacity) {
  if (!CheckArguments(src, srcLength, dst, dstCapacity)) return 0;
  codePage = Resolve(codePage);
  constexpr uint32_t kKnownFlags = 0x400 | 0x200 | 0x40 | 0x20 | 0x10 | kWcErrInvalidChars;
  if ((codePage == kCpUtf8 && (flags & ~kWcErrInvalidChars)) || (flags & ~kKnownFlags)) {
    SetLastError(kErrorInvalidFlags);
    return 0;
  }
  Converter conv(codePage, false);
  if (!conv.ok()) {
    SetLastError(kErrorInvalidParameter);
    return 0;
  }
  std::size_t units = 0;
  if (srcLength == -1) {
    while (src[units]) ++units;
    ++units;
  } else {
    units = static_cast<std::size_t>(srcLength);
  }
  char* in = reinterpret_cast<char*>(const_cast<char16_t*>(src));
  size_t inLeft = units * sizeof(char16_t);
  Output<char> out(dst, dstCapacity);
  while (inLeft > 0) {
    int err = 0;
    out.Convert(conv.get(), &in, &inLeft, &err);
    if (err == 0) break;
    if (err == E2BIG) {
      SetLastError(kErrorInsufficientBuffer);
      return 0;
    }
    // A unit this code page cannot hold, or an unpaired surrogate.
    if (codePage == kCpUtf8 && (flags & kWcErrInvalidChars)) {
      SetLastError(kErrorNoUnicodeTranslation);
      return 0;
    }
    static const char kUtf8Replacement[] = "\xEF\xBF\xBD";
    bool fits = codePage == kCpUtf8 ? out.Put(kUtf8Replacement, 3) : out.Put("?", 1);
    if (!fits) {
      SetLastError(kErrorInsufficientBuffer);
      return 0;
    }
    in += sizeof(char16_t);
    inLeft -= sizeof(char16_t);
    ::iconv(conv.get(), nullptr, nullptr, nullptr, nullptr);
  }
  return out.used();
}

}  // namespace plat
