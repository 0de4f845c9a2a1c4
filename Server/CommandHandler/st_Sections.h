// The settings sections the service keeps, and for each the configuration
// record that a change makes pending for the client: the event number the
// client's settings request resets once it has fetched the section. A
// section whose change the client learns of through a flag as well (the
// OPP settings, asked with chkdatabase=1) names that flag.
#pragma once

#include <cstdint>
#include <string_view>

namespace st {

struct SectionRule {
  const char* section;
  uint32_t event;  // 0: a change makes no record pending
  uint32_t flag;   // client_config.config_flags bits set by a change, cleared by the event's reset
};

inline constexpr SectionRule kSections[] = {
    // Configuration blocks (requestid 202).
    {"ALL_SCAN_CFG", 0, 0},
    {"MS_CFG", 65, 0},
    {"RT_CFG", 66, 0},
    {"PS_CFG", 67, 0},
    {"SN_CFG", 68, 0},
    {"MS_CFG_EX", 69, 0},
    {"RT_CFG_EX", 70, 0},
    {"PS_CFG_EX", 71, 0},
    {"SN_CFG_EX", 72, 0},
    {"SPY_MS_CFG", 97, 0},
    {"SPY_RT_CFG", 98, 0},
    {"SPY_PS_CFG", 99, 0},
    {"SPY_SN_CFG", 100, 0},
    {"SPY_RESTORE_LIST", 0, 0},
    {"WTP_SETTING", 113, 0},
    {"FA_RESTORE_SETTING", 119, 0},
    // Settings-file sections (requestid 201).
    {"INI_CRITICAL", 22, 0},
    {"INI_GLOBALSETTING", 73, 0},
    {"INI_OTHERUPDATESRC", 74, 0},
    {"INI_SERVICEMODEL", 75, 0},
    {"PFW_LOG_QUERY_CONDITION", 77, 0},
    {"CLN_NET_QUARANTINE_CMD", 11, 0},
    {"INI_COMPONENT_VER", 0, 0},
    {"PRODUCT_INFO", 0, 0},
    {"INI_WHITELIST", 103, 0},
    {"INI_AEGISSETTING", 111, 0},
    {"INI_SCANSERVICELIST", 110, 0},
    {"INI_LOCALSCANSETTING", 112, 0},
    {"INI_SERVICESWITCHSETTING", 117, 0},
    {"NCIE_SETTING", 120, 0},
    {"CLIENT_ALL_SETTING", 255, 0},
    // OPP (203) and DLP (321) settings.
    {"OPPSETTING", 50, 0x1000},
    {"DLP_DEPLOY_SETTINGS", 118, 0},
};

constexpr const SectionRule* FindSection(std::string_view name) {
  for (const SectionRule& rule : kSections) {
    if (name == rule.section) return &rule;
  }
  return nullptr;
}

}  // namespace st
