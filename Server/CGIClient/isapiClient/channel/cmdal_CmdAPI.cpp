#include "cmdal_CmdAPI.h"

#include "cmdal_OutputCmd.h"
#include "ser_MsgSerializer.h"
#include "support/dbg_Trace.h"
#include "support/str_Format.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\cmdal_CmdAPI";

// One command text: the name, then each argument behind a tab.
class CommandText {
 public:
  explicit CommandText(const char16_t* name) {
    text_.reserve(1024);
    text_ = name;
  }
  CommandText& Add(const char16_t* value) {
    text_ += u'\t';
    if (value) text_ += value;
    return *this;
  }
  CommandText& Add(const std::u16string& value) { return Add(value.c_str()); }
  CommandText& Add(int64_t value) {
    char16_t digits[24];
    fmt16::Format(digits, 24, u"%lld", value);
    return Add(digits);
  }
  const char16_t* data() const { return text_.c_str(); }
  uint32_t bytes() const { return static_cast<uint32_t>(text_.size() * sizeof(char16_t)); }

 private:
  std::u16string text_;
};

// A reader: the reply pipe goes first, then the arguments that `fill` adds.
template <typename Fill>
bool Query(const char16_t* name, std::u16string* out, Fill fill) {
  std::u16string replyPipe = cmdal_ReplyPipeName(name);
  CommandText text(name);
  text.Add(replyPipe);
  fill(text);
  return cmdal_SendTextAndRecv(text.data(), text.bytes(), replyPipe.c_str(), out);
}

bool QueryUid(const char16_t* name, const char16_t* uid, std::u16string* out) {
  return Query(name, out, [uid](CommandText& t) { t.Add(uid); });
}

bool QueryUidRelease(const char16_t* name, const char16_t* uid, const char16_t* release, std::u16string* out) {
  return Query(name, out, [uid, release](CommandText& t) { t.Add(uid).Add(release); });
}

// A writer: sent one way; its result traced under the function's name.
bool Set(const char16_t* function, const CommandText& text) {
  bool result = cmdal_SendText(text.data(), text.bytes());
  VGCR_TRACE(8, u"[%s] result:[%d]", function, result ? 1 : 0);
  return result;
}

bool SetConfig(const char16_t* function, const char16_t* name, const char16_t* uid, const char16_t* config) {
  CommandText text(name);
  text.Add(uid).Add(config);
  return Set(function, text);
}

}  // namespace

const CmdalCommand kCmdalCommands[kCmdalCommandCount] = {
    {u"CMDHL_GET_ALL_SCAN_CFG", true, "uid"},
    {u"CMDHL_GET_MS_CFG", true, "uid"},
    {u"CMDHL_GET_MS_CFG_EX", true, "uid"},
    {u"CMDHL_GET_RT_CFG", true, "uid"},
    {u"CMDHL_GET_RT_CFG_EX", true, "uid"},
    {u"CMDHL_GET_PS_CFG", true, "uid"},
    {u"CMDHL_GET_PS_CFG_EX", true, "uid"},
    {u"CMDHL_GET_SN_CFG", true, "uid"},
    {u"CMDHL_GET_SN_CFG_EX", true, "uid"},
    {u"CMDHL_GET_SPY_MS_CFG", true, "uid"},
    {u"CMDHL_GET_SPY_RT_CFG", true, "uid"},
    {u"CMDHL_GET_SPY_PS_CFG", true, "uid"},
    {u"CMDHL_GET_SPY_SN_CFG", true, "uid"},
    {u"CMDHL_GET_SPY_RESTORE_LIST", true, "uid"},
    {u"CMDHL_GET_WTP_SETTING", true, "uid"},
    {u"CMDHL_GET_FA_RESTORE_SETTING", true, "uid"},
    {u"CMDHL_SET_MS_CFG", false, "uid, configuration text"},
    {u"CMDHL_SET_MS_CFG_EX", false, "uid, configuration text"},
    {u"CMDHL_SET_RT_CFG", false, "uid, configuration text"},
    {u"CMDHL_SET_RT_CFG_EX", false, "uid, configuration text"},
    {u"CMDHL_SET_PS_CFG", false, "uid, configuration text"},
    {u"CMDHL_SET_PS_CFG_EX", false, "uid, configuration text"},
    {u"CMDHL_SET_SPY_MS_CFG", false, "uid, configuration text"},
    {u"CMDHL_SET_SPY_RT_CFG", false, "uid, configuration text"},
    {u"CMDHL_SET_SPY_PS_CFG", false, "uid, configuration text"},
    {u"CMDHL_SET_CLIENTCFG_SU_STATUS", false, "uid, enabled (1 or 0)"},
    {u"CMDHL_SET_CLIENTCFG_WARNING_SETTING", false, "uid, value (decimal, 32-bit)"},
    {u"CMDHL_GET_INI_GLOBALSETTING", true, "uid"},
    {u"CMDHL_GET_INI_OTHERUPDATESRC", true, "uid"},
    {u"CMDHL_GET_INI_SCANSERVICELIST", true, "uid"},
    {u"CMDHL_GET_INI_SERVICEMODEL", true, "uid"},
    {u"CMDHL_GET_INI_CRITICAL", true, "uid, release"},
    {u"CMDHL_GET_CLN_NET_QUARANTINE_CMD", true, "uid"},
    {u"CMDHL_GET_INI_COMPONENT_VER", true, "uid, release"},
    {u"CMDHL_GET_OPPSETTING", true, "uid"},
    {u"CMDHL_IS_CONFIGFLAGSET", true, "uid, flag (decimal); reply \"1\" when set"},
    {u"CMDHL_CMDHL_GET_CLN_ALERT_MSG", true, "uid, function type (decimal)"},
    {u"CMDHL_PFW_SET_POLICY_ID", false, "uid, policy id (decimal)"},
    {u"CMDHL_PFW_GET_CLIENT_DOMAIN", true, "uid"},
    {u"CMDHL_PFW_GET_CLIENT_FULL_DOMAIN", true, "uid"},
    {u"CMDHL_PFW_UPDATE_CFW_COUNT", false, "uid, 0, six counts (decimal), text field, 1"},
    {u"CMDHL_PFW_GET_LOG_QUERY_CONDITION", true, "uid"},
    {u"CMDHL_SET_STATFLAG", false, "uid, flag (decimal)"},
    {u"CMDHL_GET_PRODUCT_INFO", true, "nothing"},
    {u"CMDHL_GET_INI_WHITELIST", true, "uid"},
    {u"CMDHL_GET_CLIENT_ALL_SETTING", true, "uid, release"},
    {u"CMDHL_GET_INI_AEGISSETTING", true, "uid"},
    {u"CMDHL_GET_INI_LOCALSCANSETTING", true, "uid"},
    {u"CMDHL_GET_INI_SERVICESWITCHSETTING", true, "uid"},
    {u"CMDHL_GET_NCIE_SETTING", true, "uid"},
};

std::u16string cmdal_ReplyPipeName(const char16_t* commandName) {
  return BuildMessageIdentifier(commandName, MessageStamp::Now());
}

bool cmdal_GetAllScanCfg(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_ALL_SCAN_CFG", uid, out); }
bool cmdal_GetMsCfg(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_MS_CFG", uid, out); }
bool cmdal_GetMsCfgEx(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_MS_CFG_EX", uid, out); }
bool cmdal_GetRtCfg(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_RT_CFG", uid, out); }
bool cmdal_GetRtCfgEx(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_RT_CFG_EX", uid, out); }
bool cmdal_GetPsCfg(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_PS_CFG", uid, out); }
bool cmdal_GetPsCfgEx(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_PS_CFG_EX", uid, out); }
bool cmdal_GetSnCfg(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_SN_CFG", uid, out); }
bool cmdal_GetSnCfgEx(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_SN_CFG_EX", uid, out); }
bool cmdal_GetSpyMsCfg(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_SPY_MS_CFG", uid, out); }
bool cmdal_GetSpyRtCfg(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_SPY_RT_CFG", uid, out); }
bool cmdal_GetSpyPsCfg(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_SPY_PS_CFG", uid, out); }
bool cmdal_GetSpySnCfg(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_SPY_SN_CFG", uid, out); }
bool cmdal_GetSpyRestoreList(const char16_t* uid, std::u16string* out) {
  return QueryUid(u"CMDHL_GET_SPY_RESTORE_LIST", uid, out);
}
bool cmdal_GetWtpSetting(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_WTP_SETTING", uid, out); }
bool cmdal_GetFaRestoreSetting(const char16_t* uid, std::u16string* out) {
  return QueryUid(u"CMDHL_GET_FA_RESTORE_SETTING", uid, out);
}

bool cmdal_SetMsCfg(const char16_t* uid, const char16_t* c) { return SetConfig(u"cmdal_SetMsCfg", u"CMDHL_SET_MS_CFG", uid, c); }
bool cmdal_SetMsCfgEx(const char16_t* uid, const char16_t* c) {
  return SetConfig(u"cmdal_SetMsCfgEx", u"CMDHL_SET_MS_CFG_EX", uid, c);
}
bool cmdal_SetRtCfg(const char16_t* uid, const char16_t* c) { return SetConfig(u"cmdal_SetRtCfg", u"CMDHL_SET_RT_CFG", uid, c); }
bool cmdal_SetRtCfgEx(const char16_t* uid, const char16_t* c) {
  return SetConfig(u"cmdal_SetRtCfgEx", u"CMDHL_SET_RT_CFG_EX", uid, c);
}
bool cmdal_SetPsCfg(const char16_t* uid, const char16_t* c) { return SetConfig(u"cmdal_SetPsCfg", u"CMDHL_SET_PS_CFG", uid, c); }
bool cmdal_SetPsCfgEx(const char16_t* uid, const char16_t* c) {
  return SetConfig(u"cmdal_SetPsCfgEx", u"CMDHL_SET_PS_CFG_EX", uid, c);
}
bool cmdal_SetSpyMsCfg(const char16_t* uid, const char16_t* c) {
  return SetConfig(u"cmdal_SetSpyMsCfg", u"CMDHL_SET_SPY_MS_CFG", uid, c);
}
bool cmdal_SetSpyRtCfg(const char16_t* uid, const char16_t* c) {
  return SetConfig(u"cmdal_SetSpyRtCfg", u"CMDHL_SET_SPY_RT_CFG", uid, c);
}
bool cmdal_SetSpyPsCfg(const char16_t* uid, const char16_t* c) {
  return SetConfig(u"cmdal_SetSpyPsCfg", u"CMDHL_SET_SPY_PS_CFG", uid, c);
}

bool cmdal_SetClinetCfg_SUStatus(const char16_t* uid, bool enabled) {
  VGCR_TRACE(8, u"[cmdal_SetClinetCfg_SUStatus]set scheduled update status:[%d]", enabled ? 1 : 0);
  CommandText text(u"CMDHL_SET_CLIENTCFG_SU_STATUS");
  text.Add(uid).Add(int64_t{enabled ? 1 : 0});
  return Set(u"cmdal_SetClinetCfg_SUStatus", text);
}

bool cmdal_SetClinetCfg_WarningSetting(const char16_t* uid, const uint32_t* enableWarningSetting) {
  const uint32_t value = enableWarningSetting ? *enableWarningSetting : 0;
  VGCR_TRACE(8, u"[cmdal_SetClinetCfg_WarningSetting]set privilege dwEnableWarningSetting:[%08x]", value);
  CommandText text(u"CMDHL_SET_CLIENTCFG_WARNING_SETTING");
  text.Add(uid).Add(int64_t{value});
  return Set(u"cmdal_SetClinetCfg_WarningSetting", text);
}

bool cmdal_GetIniGlobalSetting(const char16_t* uid, std::u16string* out) {
  return QueryUid(u"CMDHL_GET_INI_GLOBALSETTING", uid, out);
}
bool cmdal_GetIniOtherUpdateSrc(const char16_t* uid, std::u16string* out) {
  return QueryUid(u"CMDHL_GET_INI_OTHERUPDATESRC", uid, out);
}
bool cmdal_GetIniScanServiceList(const char16_t* uid, std::u16string* out) {
  return QueryUid(u"CMDHL_GET_INI_SCANSERVICELIST", uid, out);
}
bool cmdal_GetIniServiceModel(const char16_t* uid, std::u16string* out) {
  return QueryUid(u"CMDHL_GET_INI_SERVICEMODEL", uid, out);
}
bool cmdal_GetIniCritical(const char16_t* uid, const char16_t* release, std::u16string* out) {
  return QueryUidRelease(u"CMDHL_GET_INI_CRITICAL", uid, release, out);
}
bool cmdal_GetClnNetQuarantineCmd(const char16_t* uid, std::u16string* out) {
  return QueryUid(u"CMDHL_GET_CLN_NET_QUARANTINE_CMD", uid, out);
}
bool cmdal_GetIniComponentVer(const char16_t* uid, const char16_t* release, std::u16string* out) {
  return QueryUidRelease(u"CMDHL_GET_INI_COMPONENT_VER", uid, release, out);
}
bool cmdal_GetIniWhiteList(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_INI_WHITELIST", uid, out); }
bool cmdal_GetClientAllSetting(const char16_t* uid, const char16_t* release, std::u16string* out) {
  return QueryUidRelease(u"CMDHL_GET_CLIENT_ALL_SETTING", uid, release, out);
}
bool cmdal_GetIniAegisSetting(const char16_t* uid, std::u16string* out) {
  return QueryUid(u"CMDHL_GET_INI_AEGISSETTING", uid, out);
}
bool cmdal_GetIniLocalScanSetting(const char16_t* uid, std::u16string* out) {
  return QueryUid(u"CMDHL_GET_INI_LOCALSCANSETTING", uid, out);
}
bool cmdal_GetIniServiceSwitchSetting(const char16_t* uid, std::u16string* out) {
  return QueryUid(u"CMDHL_GET_INI_SERVICESWITCHSETTING", uid, out);
}
bool cmdal_GetNcieSetting(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_NCIE_SETTING", uid, out); }
bool cmdal_GetProductInfo(std::u16string* out) {
  return Query(u"CMDHL_GET_PRODUCT_INFO", out, [](CommandText&) {});
}

bool cmdal_GetOppSetting(const char16_t* uid, std::u16string* out) { return QueryUid(u"CMDHL_GET_OPPSETTING", uid, out); }

bool cmdal_IsConfigFlagSet(const char16_t* uid, uint32_t flag, bool* isSet) {
  std::u16string reply;
  bool ok = Query(u"CMDHL_IS_CONFIGFLAGSET", &reply, [uid, flag](CommandText& t) { t.Add(uid).Add(int64_t{flag}); });
  *isSet = ok && reply == u"1";
  return ok;
}

bool cmdal_GetClnAlertMsg(const char16_t* uid, int32_t functionType, std::u16string* out) {
  return Query(u"CMDHL_CMDHL_GET_CLN_ALERT_MSG", out,
               [uid, functionType](CommandText& t) { t.Add(uid).Add(int64_t{functionType}); });
}

bool cmdal_PfwSetPolicyId(const char16_t* uid, uint32_t policyId) {
  CommandText text(u"CMDHL_PFW_SET_POLICY_ID");
  text.Add(uid).Add(int64_t{policyId});
  return Set(u"cmdal_PfwSetPolicyId", text);
}
bool cmdal_PfwGetClientDomain(const char16_t* uid, std::u16string* out) {
  return QueryUid(u"CMDHL_PFW_GET_CLIENT_DOMAIN", uid, out);
}
bool cmdal_PfwGetClientFullDomain(const char16_t* uid, std::u16string* out) {
  return QueryUid(u"CMDHL_PFW_GET_CLIENT_FULL_DOMAIN", uid, out);
}
bool cmdal_PfwGetLogQueryCondition(const char16_t* uid, std::u16string* out) {
  return QueryUid(u"CMDHL_PFW_GET_LOG_QUERY_CONDITION", uid, out);
}
bool cmdal_PfwUpdateCfwCount(const char16_t* uid, int32_t lead, const int32_t counts[6], const char16_t* text,
                             int32_t tail) {
  CommandText command(u"CMDHL_PFW_UPDATE_CFW_COUNT");
  command.Add(uid).Add(int64_t{lead});
  for (int i = 0; i < 6; ++i) command.Add(int64_t{counts[i]});
  command.Add(text).Add(int64_t{tail});
  return Set(u"cmdal_PfwUpdateCfwCount", command);
}

bool cmdal_SetStatFlag(const char16_t* uid, uint32_t flag) {
  CommandText text(u"CMDHL_SET_STATFLAG");
  text.Add(uid).Add(int64_t{flag});
  return Set(u"cmdal_SetStatFlag", text);
}
