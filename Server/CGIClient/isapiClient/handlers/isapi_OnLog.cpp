#include "isapi_OnLog.h"

#include <algorithm>
#include <vector>

#include "channel/cmdal_CmdAPI.h"
#include "channel/rec_Coding.h"
#include "hdl_Common.h"
#include "hdl_Identity.h"
#include "hdl_LogBuilders.h"
#include "host/isapi_Result.h"
#include "host/rsp_Reply.h"
#include "platform/text.h"
#include "support/dbg_Trace.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\isapi_OnLog";
constexpr char16_t kHandlerName[] = u"ProcessOnLog";
constexpr HandlerName kHandler{kTraceSource, kHandlerName};
constexpr int32_t kFirewallLogType = 13;

// Log type -> record type. 11, 15 and 20 convert but no builder takes them.
struct LogTypeConversion {
  int32_t logType;
  int32_t recordType;
};
constexpr LogTypeConversion kConversions[] = {
    {1, 1},   {2, 2},   {3, 3},   {4, 4},   {5, 5},   {11, 11}, {13, 13}, {15, 15}, {17, 17},
    {20, 18}, {23, 23}, {24, 24}, {25, 25}, {26, 20}, {27, 27}, {32, 22}, {33, 33},
};

// The firewall counters' text field is kept to this many units.
constexpr std::size_t kFirewallTextUnits = 256;
constexpr std::size_t kCountDigits = 20;

std::vector<std::u16string> SplitAtTabsAndCommas(const std::u16string& text) {
  std::vector<std::u16string> fields(1);
  for (char16_t c : text) {
    if (c == u'\t' || c == u',') {
      fields.emplace_back();
    } else {
      fields.back().push_back(c);
    }
  }
  return fields;
}

// A count: decimal digits, blanks (spaces, CR, LF) around them allowed,
// read from at most 20 characters as a 32-bit strtol, so a longer one
// saturates. A sign, or any other character, makes the value malformed:
// counts are never negative.
bool ParseCount(const std::u16string& field, int32_t* count) {
  const auto blank = [](char16_t c) { return c == u' ' || c == u'\r' || c == u'\n'; };
  std::size_t start = 0, end = field.size();
  while (start < end && blank(field[start])) ++start;
  while (end > start && blank(field[end - 1])) --end;
  if (start == end) return false;
  for (std::size_t i = start; i < end; ++i) {
    if (field[i] < u'0' || field[i] > u'9') return false;
  }
  const std::u16string head = field.substr(start, std::min(end - start, kCountDigits));
  *count = plat::StrToLong(plat::ToUtf8(head).c_str());
  return true;
}

// Reads the keys of a handled log type into its record and sends it; the
// result the client gets.
HandlerResult SendLog(const ClientIdentity& identity, const RequestParams& params, int32_t recordType) {
  const LogRow* row = FindLogRow(identity.functionType);
  if (row == nullptr) return kResultBadFunctionType;
  logrec::tagCln_Log record(*row->layout);
  record.SetUid(NarrowAnsi(identity.uid));
  record.SetRelease(NarrowAnsi(identity.release));
  record.recordType = recordType;
  if (row->tracesType) VGCR_TRACE(73, u"%s - type=%d", kHandlerName, identity.functionType);
  const int32_t code = RunLogBuilder(*row, params, record);
  if (!row->codes.Succeeded(code)) {
    if (row->failureTrace) VGCR_TRACE(69, row->failureTrace, kHandlerName, code);
    return kResultNotDelivered;
  }
  const bool sent = row->send ? row->send(record) : SendLogRecord(record);
  return sent ? kResultHandled : kResultNotDelivered;
}

HandlerResult Intake(const ClientIdentity& identity, const RequestParams& params) {
  int32_t recordType = 0;
  if (!ConvertLogType(identity.functionType, &recordType)) {
    VGCR_TRACE(69, u"[ProcessOnLog] ISAPI_FAIL_MISSING_FUNCTIONTYPE");
    return kResultBadFunctionType;
  }
  if (identity.functionType == kFirewallLogType) {
    return ProcessFirewallLogCount(identity.uid, params) ? kResultHandled : kResultCounterUpdateFailed;
  }
  return SendLog(identity, params, recordType);
}

}  // namespace

bool ConvertLogType(int32_t logType, int32_t* recordType) {
  VGCR_TRACE(73, u"%s - type=%d", u"ConvertLogType", logType);
  for (const LogTypeConversion& conversion : kConversions) {
    if (conversion.logType == logType) {
      *recordType = conversion.recordType;
      return true;
    }
  }
  return false;
}

bool ProcessFirewallLogCount(const std::u16string& uid, const RequestParams& params) {
  constexpr char16_t kName[] = u"ProcessFirewallLogCount";
  std::u16string value;
  const bool present = params.GetString("PFWcountstr", &value, UINT32_MAX);
  const std::vector<std::u16string> fields = SplitAtTabsAndCommas(value);
  int32_t counts[6] = {};
  bool good = present && fields.size() == 7;
  for (std::size_t i = 0; good && i < 6; ++i) good = ParseCount(fields[i + 1], &counts[i]);
  if (!good) {
    VGCR_TRACE(69, u"%s - Error: Invalid parameter - [%s]", kName, u"PFWcountstr");
    return false;
  }
  VGCR_TRACE(73, u"%s - [%s]=%s", kName, u"PFWcountstr", value);
  const std::u16string text = rec::CutText(fields[0], kFirewallTextUnits);
  return cmdal_PfwUpdateCfwCount(uid.c_str(), 0, counts, text.c_str(), 1);
}

int32_t ProcessOnLog(const RequestParams& params, CHttpResponse& response) {
  VGCR_TRACE(8, u"[ProcessOnLog] Enter");
  ClientIdentity identity(params);
  identity.ReadFunctionType();
  identity.ReadUid();
  identity.CheckUid(kHandler);
  identity.ReadOptionalRelease();
  if (!identity.ok()) {
    VGCR_TRACE(69, u"[ProcessOnLog] Leave due error(%d)", identity.result);
    return identity.result;
  }
  VGCR_TRACE(73, u"[ProcessOnLog] LogType = %d, Uid = %s, Release = %s", identity.functionType, identity.uid,
             identity.release);
  HandlerResult result = Intake(identity, params);
  if (result == kResultHandled) {
    result = WriteCodeReply(params, response, kResultHandled) ? kResultHandled : kResultBackOff;
  } else {
    VGCR_TRACE(69, u"[ProcessOnLog] Leave due error(%d)", result);
  }
  VGCR_TRACE(8, u"[ProcessOnLog] Leave");
  return result;
}
