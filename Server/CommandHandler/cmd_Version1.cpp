#include "cmd_Version1.h"

#include <cerrno>
#include <cstdlib>

#include "channel/ser_MsgSerializer.h"
#include "cmd_Reply.h"
#include "platform/text.h"

namespace cmd {

enum class Action {
  kReadSection,   // uid [, release]: the client's section, else the default
  kWriteSection,  // uid, text: the client's own section; config event pending
  kSetValue,      // uid, number: one per-client value
  kConfigFlag,    // uid, flag: "1" when set
  kAlertMessage,  // uid, function type
  kDomain,        // uid
  kFullDomain,    // uid
  kFirewall,      // uid, 0, six counts, text, 1
};

struct Command1 {
  const char16_t* name;
  Action action;
  const char* section = nullptr;  // sections; also the log's name of a value
  uint32_t argc = 1;              // arguments after the name (a reader's reply pipe included)
  st::ClientValue value = st::ClientValue::kStatFlag;
};

namespace {

using st::ClientValue;

constexpr Command1 kCommands[] = {
    {u"CMDHL_GET_ALL_SCAN_CFG", Action::kReadSection, "ALL_SCAN_CFG", 2},
    {u"CMDHL_GET_MS_CFG", Action::kReadSection, "MS_CFG", 2},
    {u"CMDHL_GET_MS_CFG_EX", Action::kReadSection, "MS_CFG_EX", 2},
    {u"CMDHL_GET_RT_CFG", Action::kReadSection, "RT_CFG", 2},
    {u"CMDHL_GET_RT_CFG_EX", Action::kReadSection, "RT_CFG_EX", 2},
    {u"CMDHL_GET_PS_CFG", Action::kReadSection, "PS_CFG", 2},
    {u"CMDHL_GET_PS_CFG_EX", Action::kReadSection, "PS_CFG_EX", 2},
    {u"CMDHL_GET_SN_CFG", Action::kReadSection, "SN_CFG", 2},
    {u"CMDHL_GET_SN_CFG_EX", Action::kReadSection, "SN_CFG_EX", 2},
    {u"CMDHL_GET_SPY_MS_CFG", Action::kReadSection, "SPY_MS_CFG", 2},
    {u"CMDHL_GET_SPY_RT_CFG", Action::kReadSection, "SPY_RT_CFG", 2},
    {u"CMDHL_GET_SPY_PS_CFG", Action::kReadSection, "SPY_PS_CFG", 2},
    {u"CMDHL_GET_SPY_SN_CFG", Action::kReadSection, "SPY_SN_CFG", 2},
    {u"CMDHL_GET_SPY_RESTORE_LIST", Action::kReadSection, "SPY_RESTORE_LIST", 2},
    {u"CMDHL_GET_WTP_SETTING", Action::kReadSection, "WTP_SETTING", 2},
    {u"CMDHL_GET_FA_RESTORE_SETTING", Action::kReadSection, "FA_RESTORE_SETTING", 2},
    // Each makes its section's config record pending (st_Sections).
    {u"CMDHL_SET_MS_CFG", Action::kWriteSection, "MS_CFG", 2},
    {u"CMDHL_SET_MS_CFG_EX", Action::kWriteSection, "MS_CFG_EX", 2},
    {u"CMDHL_SET_RT_CFG", Action::kWriteSection, "RT_CFG", 2},
    {u"CMDHL_SET_RT_CFG_EX", Action::kWriteSection, "RT_CFG_EX", 2},
    {u"CMDHL_SET_PS_CFG", Action::kWriteSection, "PS_CFG", 2},
    {u"CMDHL_SET_PS_CFG_EX", Action::kWriteSection, "PS_CFG_EX", 2},
    {u"CMDHL_SET_SPY_MS_CFG", Action::kWriteSection, "SPY_MS_CFG", 2},
    {u"CMDHL_SET_SPY_RT_CFG", Action::kWriteSection, "SPY_RT_CFG", 2},
    {u"CMDHL_SET_SPY_PS_CFG", Action::kWriteSection, "SPY_PS_CFG", 2},
    {u"CMDHL_SET_CLIENTCFG_SU_STATUS", Action::kSetValue, "scheduled_update", 2, ClientValue::kScheduledUpdate},
    {u"CMDHL_SET_CLIENTCFG_WARNING_SETTING", Action::kSetValue, "warning_setting", 2, ClientValue::kWarningSetting},
    {u"CMDHL_GET_INI_GLOBALSETTING", Action::kReadSection, "INI_GLOBALSETTING", 2},
    {u"CMDHL_GET_INI_OTHERUPDATESRC", Action::kReadSection, "INI_OTHERUPDATESRC", 2},
    {u"CMDHL_GET_INI_SCANSERVICELIST", Action::kReadSection, "INI_SCANSERVICELIST", 2},
    {u"CMDHL_GET_INI_SERVICEMODEL", Action::kReadSection, "INI_SERVICEMODEL", 2},
    {u"CMDHL_GET_INI_CRITICAL", Action::kReadSection, "INI_CRITICAL", 3},
    {u"CMDHL_GET_CLN_NET_QUARANTINE_CMD", Action::kReadSection, "CLN_NET_QUARANTINE_CMD", 2},
    {u"CMDHL_GET_INI_COMPONENT_VER", Action::kReadSection, "INI_COMPONENT_VER", 3},
    {u"CMDHL_GET_OPPSETTING", Action::kReadSection, "OPPSETTING", 2},
    {u"CMDHL_IS_CONFIGFLAGSET", Action::kConfigFlag, nullptr, 3},
    {u"CMDHL_CMDHL_GET_CLN_ALERT_MSG", Action::kAlertMessage, nullptr, 3},
    {u"CMDHL_PFW_SET_POLICY_ID", Action::kSetValue, "policy_id", 2, ClientValue::kPolicyId},
    {u"CMDHL_PFW_GET_CLIENT_DOMAIN", Action::kDomain, nullptr, 2},
    {u"CMDHL_PFW_GET_CLIENT_FULL_DOMAIN", Action::kFullDomain, nullptr, 2},
    {u"CMDHL_PFW_UPDATE_CFW_COUNT", Action::kFirewall, nullptr, 10},
    {u"CMDHL_PFW_GET_LOG_QUERY_CONDITION", Action::kReadSection, "PFW_LOG_QUERY_CONDITION", 2},
    {u"CMDHL_SET_STATFLAG", Action::kSetValue, "stat_flag", 2, ClientValue::kStatFlag},
    {u"CMDHL_GET_PRODUCT_INFO", Action::kReadSection, "PRODUCT_INFO", 1},
    {u"CMDHL_GET_INI_WHITELIST", Action::kReadSection, "INI_WHITELIST", 2},
    {u"CMDHL_GET_CLIENT_ALL_SETTING", Action::kReadSection, "CLIENT_ALL_SETTING", 3},
    {u"CMDHL_GET_INI_AEGISSETTING", Action::kReadSection, "INI_AEGISSETTING", 2},
    {u"CMDHL_GET_INI_LOCALSCANSETTING", Action::kReadSection, "INI_LOCALSCANSETTING", 2},
    {u"CMDHL_GET_INI_SERVICESWITCHSETTING", Action::kReadSection, "INI_SERVICESWITCHSETTING", 2},
    {u"CMDHL_GET_NCIE_SETTING", Action::kReadSection, "NCIE_SETTING", 2},
};
static_assert(sizeof kCommands / sizeof kCommands[0] == 50, "every version-1 command has its row");

bool IsReader(Action action) {
  return action != Action::kWriteSection && action != Action::kSetValue && action != Action::kFirewall;
}

// A decimal argument; false when it is not one.
bool Number(const std::u16string& text, int64_t* value) {
  const std::string narrow = plat::ToUtf8(text);
  if (narrow.empty()) return false;
  errno = 0;
  char* end = nullptr;
  *value = std::strtoll(narrow.c_str(), &end, 10);
  return errno == 0 && *end == '\0';
}

// A count as the client reports it: decimal digits only, so no sign.
bool Count(const std::u16string& text, int64_t* value) {
  if (text.empty() || text.size() > 18) return false;
  for (char16_t c : text) {
    if (c < u'0' || c > u'9') return false;
  }
  return Number(text, value);
}

// The answer of a reader, into *text; false with *what set on a failure.
bool Read(Context& context, const Command1& command, const std::vector<std::u16string>& fields, std::string* text,
          std::string* what) {
  const std::string uid = fields.size() > 2 ? plat::ToUtf8(fields[2]) : "";
  int64_t number = 0;
  bool ok = true;
  switch (command.action) {
    case Action::kReadSection:
      ok = context.store.ReadSection(uid, command.section, text);
      *what = std::string(command.section) + " " + std::to_string(text->size()) + " bytes";
      break;
    case Action::kConfigFlag: {
      bool set = false;
      if (!Number(fields[3], &number)) {
        *what = "dropped: the flag is not a number";
        return false;
      }
      ok = context.store.IsConfigFlagSet(uid, static_cast<uint32_t>(number), &set);
      *text = set ? "1" : "0";
      *what = "flag " + std::to_string(number) + (set ? " set" : " not set");
      break;
    }
    case Action::kAlertMessage:
      if (!Number(fields[3], &number)) {
        *what = "dropped: the function type is not a number";
        return false;
      }
      ok = context.store.AlertMessage(uid, static_cast<int32_t>(number), text);
      *what = "function type " + std::to_string(number) + ", " + std::to_string(text->size()) + " bytes";
      break;
    case Action::kDomain:
    case Action::kFullDomain:
      ok = context.store.ClientDomain(uid, command.action == Action::kFullDomain, text);
      *what = "domain \"" + *text + "\"";
      break;
    default:
      *what = "dropped: not a reader";
      return false;
  }
  if (!ok) *what = "dropped: the database failed";
  if (!uid.empty()) *what = "uid=" + uid + " " + *what;
  return ok;
}

std::string Write(Context& context, const Command1& command, const std::vector<std::u16string>& fields) {
  const std::string uid = plat::ToUtf8(fields[1]);
  int64_t number = 0;
  bool ok = false;
  std::string what;
  switch (command.action) {
    case Action::kWriteSection: {
      uint32_t event = 0;
      ok = context.store.WriteSection(uid, command.section, plat::ToUtf8(fields[2]), &event);
      what = std::string(command.section) + " stored, config event " + std::to_string(event) + " pending";
      break;
    }
    case Action::kSetValue:
      if (!Number(fields[2], &number)) return "dropped: uid=" + uid + " the value is not a number";
      ok = context.store.SetClientValue(uid, command.value, number);
      what = std::string(command.section) + "=" + std::to_string(number);
      break;
    case Action::kFirewall: {
      if (fields[1].size() != 36) return "dropped: the uid is " + std::to_string(fields[1].size()) + " characters";
      st::FirewallCounts counts;
      for (int i = 0; i < 6; ++i) {
        if (!Count(fields[3 + i], &counts.counts[i]))
          return "dropped: uid=" + uid + " count " + std::to_string(i + 1) + " is not a decimal count";
      }
      counts.textField = plat::ToUtf8(fields[9]);
      ok = context.store.SetFirewallCounts(uid, counts);
      what = "firewall counts stored";
      break;
    }
    default:
      return "dropped: not a setter";
  }
  return ok ? "uid=" + uid + " " + what : "dropped: uid=" + uid + " the database failed";
}

}  // namespace

const Command1* FindCommand1(std::u16string_view name) {
  for (const Command1& command : kCommands) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

std::size_t FieldCount(const Command1& command) { return 1 + command.argc; }

std::string RunCommand1(Context& context, const Command1& command, const std::vector<std::u16string>& fields) {
  if (fields.size() != FieldCount(command)) {
    return "dropped: " + std::to_string(fields.size() - 1) + " arguments, " + std::to_string(command.argc) +
           " expected";
  }
  if (!IsReader(command.action)) return Write(context, command, fields);
  if (!IsMessageIdentifier(fields[0], fields[1])) return "dropped: its reply pipe is not of the protocol's form";
  std::string text, what;
  if (!Read(context, command, fields, &text, &what)) return what;
  std::string error;
  if (!SendText(fields[1], plat::FromUtf8(text), &error)) return what + "; not answered: " + error;
  return what;
}

}  // namespace cmd
