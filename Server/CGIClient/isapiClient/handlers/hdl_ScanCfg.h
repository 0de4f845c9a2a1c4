// The scan settings a client uploads (requestid 111): real-time, manual,
// scheduled and spyware scans, one text per section in the form the
// configuration request returns. Each section is a row: its form key,
// header, setter and keys; each key has a type, and a value is valid only
// when its type says so. Nothing is forwarded that the parser did not take.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace scancfg {

enum class Type {
  kBool,       // 0 or 1
  kRange,      // decimal digits, min to max
  kAction,     // Clean, Quarantine, Delete, Rename, Pass
  kSpyAction,  // Clean, Deny, Pass
  kScanOn,     // Read, Write, Read,Write
  kFrequency,  // Daily, Weekly, Monthly
  kDay,        // Sunday to Saturday
  kTime,       // hh:mm, 00:00 to 23:59
  kText,       // at most 1024 characters, no control characters
};

struct Key {
  const char* name;
  Type type;
  int32_t min = 0;
  int32_t max = 0;
};

using Setter = bool (*)(const char16_t* uid, const char16_t* text);

struct Section {
  const char* formKey;  // "RT_CFG"
  const char16_t* header;  // u"[RealTime_Scan]"
  Setter setter;
  const Key* keys;
  std::size_t keyCount;
};

inline constexpr std::size_t kSectionCount = 9;
// In the order the sections are sent.
extern const Section kSections[kSectionCount];

inline constexpr std::size_t kMaxSectionChars = 8192;
inline constexpr std::size_t kMaxTextChars = 1024;

// Parses a section's text. True with *canonical set to the header and the
// keys in the order given, each line ending with CR LF as every settings
// text the server hands out does; false with *where
// naming what failed: the form key alone, or the form key, a dot and the
// setting's key.
bool ParseSection(const Section& section, std::u16string_view text, std::u16string* canonical,
                  std::string* where);

}  // namespace scancfg
