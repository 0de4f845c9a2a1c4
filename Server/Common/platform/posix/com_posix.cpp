// A per-thread COM apartment model with the answers COM gives.
#include "platform/com.h"

namespace plat {
namespace {

struct Apartment {
  uint32_t inits = 0;          // CoUninitialize calls owed
  bool apartmentThreaded = false;
};
thread_local Apartment t_apartment;

int HexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// Reads `digits` hex digits at text[pos]; false on any non-hex character.
template <typename T>
bool ReadHex(const char16_t* text, int pos, int digits, T* out) {
  uint64_t value = 0;
  for (int i = 0; i < digits; ++i) {
    int v = HexValue(text[pos + i]);
    if (v < 0) return false;
    value = value << 4 | static_cast<uint64_t>(v);
  }
  *out = static_cast<T>(value);
  return true;
}

}  // namespace

HResult CoInitializeEx(uint32_t coinit) {
  constexpr uint32_t kKnown = kCoInitApartmentThreaded | kCoInitDisableOle1Dde | kCoInitSpeedOverMemory;
  if (coinit & ~kKnown) return kEInvalidArg;
  bool sta = (coinit & kCoInitApartmentThreaded) != 0;
  Apartment& a = t_apartment;
  if (a.inits == 0) {
    a.inits = 1;
    a.apartmentThreaded = sta;
    return kSOk;
  }
  if (a.apartmentThreaded != sta) return kRpcEChangedMode;
  ++a.inits;
  return kSFalse;
}

void CoUninitialize() {
  if (t_apartment.inits > 0) --t_apartment.inits;
}

HResult ClsidFromString(const char16_t* text, Guid* out) {
  if (out == nullptr) return kEInvalidArg;
  // "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" and its terminator.
  Guid g;
  bool ok = text != nullptr && text[0] == u'{' && ReadHex(text, 1, 8, &g.data1) && text[9] == u'-' &&
            ReadHex(text, 10, 4, &g.data2) && text[14] == u'-' && ReadHex(text, 15, 4, &g.data3) &&
            text[19] == u'-' && ReadHex(text, 20, 2, &g.data4[0]) && ReadHex(text, 22, 2, &g.data4[1]) &&
            text[24] == u'-';
  for (int i = 0; ok && i < 6; ++i) ok = ReadHex(text, 25 + 2 * i, 2, &g.data4[2 + i]);
  ok = ok && text[37] == u'}' && text[38] == u'\0';
  if (!ok) return kCoEClassString;
  *out = g;
  return kSOk;
}

}  // namespace plat
