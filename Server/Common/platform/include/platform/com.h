// COM apartment initialisation and GUID parsing.
//
// Windows calls the real COM. POSIX keeps a per-thread apartment that answers
// exactly where COM would: S_OK for the first initialisation of a thread,
// S_FALSE for a nested one in the same model, RPC_E_CHANGED_MODE for a
// different model, with one CoUninitialize owed per successful call.
#pragma once

#include <cstdint>

#include "platform/errors.h"

namespace plat {

inline constexpr uint32_t kCoInitMultithreaded = 0x0;
inline constexpr uint32_t kCoInitApartmentThreaded = 0x2;
inline constexpr uint32_t kCoInitDisableOle1Dde = 0x4;
inline constexpr uint32_t kCoInitSpeedOverMemory = 0x8;

struct Guid {
  uint32_t data1 = 0;
  uint16_t data2 = 0;
  uint16_t data3 = 0;
  uint8_t data4[8] = {};
  friend bool operator==(const Guid&, const Guid&) = default;
};

HResult CoInitializeEx(uint32_t coinit);
void CoUninitialize();

// CLSIDFromString for a GUID in registry form "{XXXXXXXX-XXXX-XXXX-XXXX-
// XXXXXXXXXXXX}". Anything else is CO_E_CLASSSTRING (on Windows a text that
// is not a GUID is looked up as a ProgID, which the program never registers).
HResult ClsidFromString(const char16_t* text, Guid* out);

}  // namespace plat
