#include "hdl_ScanCfg.h"

#include <vector>

#include "channel/cmdal_CmdAPI.h"

namespace scancfg {
namespace {

using T = Type;

constexpr Key kRealTime[] = {
    {"Enabled", T::kBool},        {"ScanOn", T::kScanOn},        {"ScanAllFiles", T::kBool},
    {"ScanCompressed", T::kBool}, {"CompressedLayer", T::kRange, 1, 20}, {"ScanFloppyOnShutdown", T::kBool},
    {"FirstAction", T::kAction},  {"SecondAction", T::kAction},
};
constexpr Key kRealTimeEx[] = {
    {"ScanNetworkDrives", T::kBool}, {"EnableBehaviorMonitoring", T::kBool},
    {"EnableCacheScan", T::kBool},   {"ExclusionList", T::kText},
};
constexpr Key kManual[] = {
    {"ScanAllFiles", T::kBool},  {"UseIntelliScan", T::kBool},  {"ScanCompressed", T::kBool},
    {"CompressedLayer", T::kRange, 1, 20}, {"ScanBootArea", T::kBool}, {"FirstAction", T::kAction},
    {"SecondAction", T::kAction}, {"CpuUsage", T::kRange, 1, 3},
};
constexpr Key kManualEx[] = {
    {"ScanHiddenFolders", T::kBool}, {"ScanNetworkDrives", T::kBool}, {"SkipFilesLargerThanMB", T::kRange, 0, 102400},
    {"ExclusionList", T::kText},     {"BackupBeforeClean", T::kBool},
};
constexpr Key kScheduled[] = {
    {"Enabled", T::kBool},       {"Frequency", T::kFrequency},   {"Day", T::kDay},
    {"Time", T::kTime},          {"ScanAllFiles", T::kBool},     {"FirstAction", T::kAction},
    {"SecondAction", T::kAction}, {"CpuUsage", T::kRange, 1, 3},
};
constexpr Key kScheduledEx[] = {
    {"PostponeMinutes", T::kRange, 0, 1440}, {"StopAfterHours", T::kRange, 0, 24},
    {"SkipWhenOnBattery", T::kBool},         {"ExclusionList", T::kText},
};
constexpr Key kSpyRealTime[] = {{"Enabled", T::kBool}, {"Action", T::kSpyAction}, {"ApprovedList", T::kText}};
constexpr Key kSpyScan[] = {
    {"Enabled", T::kBool}, {"Action", T::kSpyAction}, {"ScanCookies", T::kBool}, {"ApprovedList", T::kText}};

template <std::size_t N>
constexpr Section Row(const char* formKey, const char16_t* header, Setter setter, const Key (&keys)[N]) {
  return Section{formKey, header, setter, keys, N};
}

bool OneOf(std::u16string_view value, std::initializer_list<std::u16string_view> words) {
  for (const std::u16string_view word : words) {
    if (value == word) return true;
  }
  return false;
}

bool Digit(char16_t c) { return c >= u'0' && c <= u'9'; }

bool InRange(std::u16string_view value, int32_t min, int32_t max) {
  if (value.empty() || value.size() > 9) return false;
  int32_t number = 0;
  for (const char16_t c : value) {
    if (!Digit(c)) return false;
    number = number * 10 + (c - u'0');
  }
  return number >= min && number <= max;
}

bool IsTimeOfDay(std::u16string_view value) {
  return value.size() == 5 && value[2] == u':' && InRange(value.substr(0, 2), 0, 23) &&
         InRange(value.substr(3, 2), 0, 59);
}

bool IsPlainText(std::u16string_view value) {
  if (value.size() > kMaxTextChars) return false;
  for (const char16_t c : value) {
    if (c < 0x20 || (c >= 0x7F && c <= 0x9F)) return false;
  }
  return true;
}

bool IsValid(const Key& key, std::u16string_view value) {
  switch (key.type) {
    case T::kBool: return value == u"0" || value == u"1";
    case T::kRange: return InRange(value, key.min, key.max);
    case T::kAction: return OneOf(value, {u"Clean", u"Quarantine", u"Delete", u"Rename", u"Pass"});
    case T::kSpyAction: return OneOf(value, {u"Clean", u"Deny", u"Pass"});
    case T::kScanOn: return OneOf(value, {u"Read", u"Write", u"Read,Write"});
    case T::kFrequency: return OneOf(value, {u"Daily", u"Weekly", u"Monthly"});
    case T::kDay:
      return OneOf(value, {u"Sunday", u"Monday", u"Tuesday", u"Wednesday", u"Thursday", u"Friday", u"Saturday"});
    case T::kTime: return IsTimeOfDay(value);
    case T::kText: return IsPlainText(value);
  }
  return false;
}

bool NameIs(std::u16string_view text, const char* name) {
  std::size_t i = 0;
  for (; name[i] != '\0'; ++i) {
    if (i >= text.size() || text[i] != static_cast<char16_t>(name[i])) return false;
  }
  return i == text.size();
}

// A key as sent may name the failure only when it is a plain word.
bool IsWord(std::u16string_view text) {
  if (text.empty() || text.size() > 64) return false;
  for (const char16_t c : text) {
    if (!(Digit(c) || (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || c == u'_')) return false;
  }
  return true;
}

std::vector<std::u16string_view> Lines(std::u16string_view text) {
  std::vector<std::u16string_view> lines;
  while (!text.empty()) {
    const std::size_t end = text.find(u'\n');
    std::u16string_view line = text.substr(0, end);
    if (!line.empty() && line.back() == u'\r') line.remove_suffix(1);
    if (!line.empty()) lines.push_back(line);
    if (end == std::u16string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

}  // namespace

const Section kSections[kSectionCount] = {
    Row("RT_CFG", u"[RealTime_Scan]", cmdal_SetRtCfg, kRealTime),
    Row("RT_CFG_EX", u"[RealTime_Scan_Ex]", cmdal_SetRtCfgEx, kRealTimeEx),
    Row("MS_CFG", u"[Manual_Scan]", cmdal_SetMsCfg, kManual),
    Row("MS_CFG_EX", u"[Manual_Scan_Ex]", cmdal_SetMsCfgEx, kManualEx),
    Row("PS_CFG", u"[Scheduled_Scan]", cmdal_SetPsCfg, kScheduled),
    Row("PS_CFG_EX", u"[Scheduled_Scan_Ex]", cmdal_SetPsCfgEx, kScheduledEx),
    Row("SPY_RT_CFG", u"[Spyware_RealTime_Scan]", cmdal_SetSpyRtCfg, kSpyRealTime),
    Row("SPY_MS_CFG", u"[Spyware_Manual_Scan]", cmdal_SetSpyMsCfg, kSpyScan),
    Row("SPY_PS_CFG", u"[Spyware_Scheduled_Scan]", cmdal_SetSpyPsCfg, kSpyScan),
};

bool ParseSection(const Section& section, std::u16string_view text, std::u16string* canonical,
                  std::string* where) {
  *where = section.formKey;
  if (text.size() > kMaxSectionChars) return false;
  const std::vector<std::u16string_view> lines = Lines(text);
  if (lines.empty() || lines[0] != section.header) return false;
  std::vector<bool> seen(section.keyCount, false);
  std::u16string out = std::u16string(section.header) + u"\r\n";
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const std::size_t equals = lines[i].find(u'=');
    if (equals == std::u16string_view::npos || equals == 0) return false;
    const std::u16string_view name = lines[i].substr(0, equals);
    const std::u16string_view value = lines[i].substr(equals + 1);
    std::size_t k = 0;
    while (k < section.keyCount && !NameIs(name, section.keys[k].name)) ++k;
    if (k == section.keyCount) {
      if (IsWord(name)) *where += "." + std::string(name.begin(), name.end());
      return false;
    }
    if (seen[k] || !IsValid(section.keys[k], value)) {
      *where += std::string(".") + section.keys[k].name;
      return false;
    }
    seen[k] = true;
    out.append(lines[i]).append(u"\r\n");
  }
  *canonical = std::move(out);
  where->clear();
  return true;
}

}  // namespace scancfg
