// The version-1 configuration commands ("CMDHL_" family): each joins its
// command name and arguments with tabs into one UTF-16LE text for the
// command-handler service. Readers put the name of their reply pipe first,
// right after the command name, and return the text the service answers;
// writers send one way and return whether the text was delivered.
//
// Argument lists (after the command name, and after the reply pipe name for
// readers) are listed in kCmdalCommands and in docs/protocol.md.
#pragma once

#include <cstdint>
#include <string>

struct CmdalCommand {
  const char16_t* name;
  bool reader;
  const char* arguments;  // for documentation and tests
};
inline constexpr int kCmdalCommandCount = 50;
extern const CmdalCommand kCmdalCommands[kCmdalCommandCount];

// The reply pipe name a reader uses: unique per thread, process and tick.
std::u16string cmdal_ReplyPipeName(const char16_t* commandName);

// ---- scan configuration (readers: uid)
bool cmdal_GetAllScanCfg(const char16_t* uid, std::u16string* out);
bool cmdal_GetMsCfg(const char16_t* uid, std::u16string* out);
bool cmdal_GetMsCfgEx(const char16_t* uid, std::u16string* out);
bool cmdal_GetRtCfg(const char16_t* uid, std::u16string* out);
bool cmdal_GetRtCfgEx(const char16_t* uid, std::u16string* out);
bool cmdal_GetPsCfg(const char16_t* uid, std::u16string* out);
bool cmdal_GetPsCfgEx(const char16_t* uid, std::u16string* out);
bool cmdal_GetSnCfg(const char16_t* uid, std::u16string* out);
bool cmdal_GetSnCfgEx(const char16_t* uid, std::u16string* out);
bool cmdal_GetSpyMsCfg(const char16_t* uid, std::u16string* out);
bool cmdal_GetSpyRtCfg(const char16_t* uid, std::u16string* out);
bool cmdal_GetSpyPsCfg(const char16_t* uid, std::u16string* out);
bool cmdal_GetSpySnCfg(const char16_t* uid, std::u16string* out);
bool cmdal_GetSpyRestoreList(const char16_t* uid, std::u16string* out);
bool cmdal_GetWtpSetting(const char16_t* uid, std::u16string* out);
bool cmdal_GetFaRestoreSetting(const char16_t* uid, std::u16string* out);

// ---- scan configuration (writers: uid, configuration text)
bool cmdal_SetMsCfg(const char16_t* uid, const char16_t* config);
bool cmdal_SetMsCfgEx(const char16_t* uid, const char16_t* config);
bool cmdal_SetRtCfg(const char16_t* uid, const char16_t* config);
bool cmdal_SetRtCfgEx(const char16_t* uid, const char16_t* config);
bool cmdal_SetPsCfg(const char16_t* uid, const char16_t* config);
bool cmdal_SetPsCfgEx(const char16_t* uid, const char16_t* config);
bool cmdal_SetSpyMsCfg(const char16_t* uid, const char16_t* config);
bool cmdal_SetSpyRtCfg(const char16_t* uid, const char16_t* config);
bool cmdal_SetSpyPsCfg(const char16_t* uid, const char16_t* config);

// ---- client configuration flags (writers)
bool cmdal_SetClinetCfg_SUStatus(const char16_t* uid, bool enabled);
bool cmdal_SetClinetCfg_WarningSetting(const char16_t* uid, const uint32_t* enableWarningSetting);

// ---- settings-file sections (readers)
bool cmdal_GetIniGlobalSetting(const char16_t* uid, std::u16string* out);
bool cmdal_GetIniOtherUpdateSrc(const char16_t* uid, std::u16string* out);
bool cmdal_GetIniScanServiceList(const char16_t* uid, std::u16string* out);
bool cmdal_GetIniServiceModel(const char16_t* uid, std::u16string* out);
bool cmdal_GetIniCritical(const char16_t* uid, const char16_t* release, std::u16string* out);
bool cmdal_GetClnNetQuarantineCmd(const char16_t* uid, std::u16string* out);
bool cmdal_GetIniComponentVer(const char16_t* uid, const char16_t* release, std::u16string* out);
bool cmdal_GetIniWhiteList(const char16_t* uid, std::u16string* out);
bool cmdal_GetClientAllSetting(const char16_t* uid, const char16_t* release, std::u16string* out);
bool cmdal_GetIniAegisSetting(const char16_t* uid, std::u16string* out);
bool cmdal_GetIniLocalScanSetting(const char16_t* uid, std::u16string* out);
bool cmdal_GetIniServiceSwitchSetting(const char16_t* uid, std::u16string* out);
bool cmdal_GetNcieSetting(const char16_t* uid, std::u16string* out);
bool cmdal_GetProductInfo(std::u16string* out);

// ---- OPP, alert messages (readers)
bool cmdal_GetOppSetting(const char16_t* uid, std::u16string* out);
// The reply is "1" when the flag is set for the client; anything else is not set.
bool cmdal_IsConfigFlagSet(const char16_t* uid, uint32_t flag, bool* isSet);
bool cmdal_GetClnAlertMsg(const char16_t* uid, int32_t functionType, std::u16string* out);

// ---- personal firewall
bool cmdal_PfwSetPolicyId(const char16_t* uid, uint32_t policyId);
bool cmdal_PfwGetClientDomain(const char16_t* uid, std::u16string* out);
bool cmdal_PfwGetClientFullDomain(const char16_t* uid, std::u16string* out);
bool cmdal_PfwGetLogQueryCondition(const char16_t* uid, std::u16string* out);
// uid, then `lead` (0), the six counts, the text field, then `tail` (1).
bool cmdal_PfwUpdateCfwCount(const char16_t* uid, int32_t lead, const int32_t counts[6], const char16_t* text,
                             int32_t tail);

// ---- status flags (writer)
bool cmdal_SetStatFlag(const char16_t* uid, uint32_t flag);
