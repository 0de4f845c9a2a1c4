#include "isapi_OnUpdate.h"

#include <tuple>

#include "channel/cmdal2_OutputCmd.h"
#include "channel/ocl_Command.h"
#include "channel/rec_Coding.h"
#include "channel/rec_Lifecycle.h"
#include "channel/rec_Update.h"
#include "channel/ser_MsgSerializer.h"
#include "hdl_Common.h"
#include "hdl_Identity.h"
#include "host/isapi_Result.h"
#include "host/rsp_Reply.h"
#include "support/dbg_Trace.h"

namespace {
constexpr char16_t kTraceSource[] = u".\\isapi_OnUpdate";
constexpr char16_t kLogonUser[] = u"ProcessOnLogonUser";
constexpr HandlerName kHandler{kTraceSource, kLogonUser};
constexpr char16_t kOnUpdate[] = u"ProcessOnUpdate";
constexpr HandlerName kUpdateHandler{kTraceSource, kOnUpdate};

// The configuration record that announced a critical update: a successful
// update has carried it out.
constexpr uint32_t kCriticalUpdateEvent = 22;

// The replies of the round trips besides the failures.
constexpr int32_t kReplyDone = 1;        // nothing more due; the certificate is the server's
constexpr int32_t kReplyFollowUp = 2;    // another update due; the server signs with another

enum UpdateType : int32_t { kReport = 1, kReportAndAsk = 2, kCertificate = 3 };

// A text of the registration's keys, cut to its width.
std::u16string ReadText(const RequestParams& params, const char* key, uint32_t width) {
  std::u16string value;
  if (!params.GetString(key, &value, width)) value = rec::CutText(value, width);
  return value;
}

uint32_t ReadPattern(const RequestParams& params, const char* key) {
  int32_t value = 0;
  ReadNumber(params, key, &value);
  return static_cast<uint32_t>(value);
}

// A result code: an optional sign and decimal digits. Anything else would
// read as 0, which says "succeeded".
bool IsResultCode(const std::string* text) {
  if (text == nullptr) return false;
  const std::size_t first = !text->empty() && (text->front() == '-' || text->front() == '+') ? 1 : 0;
  return text->size() > first && text->find_first_not_of("0123456789", first) == std::string::npos;
}

// Types 1 and 2: the record, or false when `updresult` is missing or no number.
bool ReadUpdateReport(const RequestParams& params, const ClientIdentity& identity, tagCln_CgiOnUpdate* record) {
  if (!IsResultCode(params.Lookup("updresult"))) {
    VGCR_TRACE(69, u"%s - [%s] missed", u"ReadNumber", u"updresult");
    return false;
  }
  ReadNumber(params, "updresult", &record->result);
  record->uid = identity.uid;
  record->release = identity.release;
  record->date = ReadText(params, "date", 8);
  record->time = ReadText(params, "time", 6);
  record->program = ReadText(params, "program", 20);
  record->engine = ReadText(params, "engine", 20);
  record->ptnfile = ReadPattern(params, "ptnfile");
  record->spyptn = ReadPattern(params, "spyptn");
  record->cfwptn = ReadPattern(params, "cfwptn");
  record->vaptn = ReadPattern(params, "vaptn");
  record->tscptn = ReadPattern(params, "tscptn");
  VGCR_TRACE(73, u"[ProcessOnUpdate] Result = %d, Program = %s, Engine = %s, Pattern = %u", record->result,
             record->program, record->engine, record->ptnfile);
  return true;
}

// Sends the report; *reply is what the client is answered.
int32_t SendUpdateReport(tagCln_CgiOnUpdate& record, bool ask, int32_t* reply) {
  record.answerWanted = ask ? 1 : 0;
  *reply = kReplyDone;
  if (!ask) return SendRecord(u"CMDHLV2_CLN_ON_UPDATE", record) ? kResultHandled : kResultNotDelivered;
  tagCln_OnUpdateAnswer answer;
  if (!AskService(u"CMDHLV2_CLN_ON_UPDATE", record, answer)) return kResultNotDelivered;
  if (answer.known == 0) return kResultUnknownClient;
  if (answer.updateDue != 0) *reply = kReplyFollowUp;
  return kResultHandled;
}

int32_t ReportUpdate(const RequestParams& params, const ClientIdentity& identity, bool ask, int32_t* reply) {
  tagCln_CgiOnUpdate record;
  if (!ReadUpdateReport(params, identity, &record)) return kResultMissingField;
  const int32_t result = SendUpdateReport(record, ask, reply);
  if (result == kResultHandled && record.result == 0 &&
      !RemoveConfigRecord(identity.uid.c_str(), kCriticalUpdateEvent, identity.release.c_str())) {
    VGCR_TRACE(69, u"[ProcessOnUpdate] The config record in DB is not successfully reset.");
  }
  return result;
}

// Type 3: the certificate the client trusts. When the server signs with
// another, it is asked to look at its certificate information again: the
// operator may have installed the one the client names.
int32_t ReportCertificate(const RequestParams& params, const ClientIdentity& identity, int32_t* reply) {
  tagCln_SetCertificate record;
  record.uid = identity.uid;
  for (const auto& [key, value, limit] : {std::tuple{"CLN_SA_ISR", &record.issuer, 1024u},
                                          std::tuple{"CLN_SA_SN", &record.serial, 40u}}) {
    if (!params.GetString(key, value, limit) || value->empty()) {
      VGCR_TRACE(69, u"%s - [%s] missed", u"GetString", key);
      return kResultMissingField;
    }
  }
  VGCR_TRACE(73, u"[ProcessOnUpdate] Certificate issuer = %s, serial = %s", record.issuer, record.serial);
  tagCln_SetCertificateAnswer answer;
  if (!AskService(u"CMDHLV2_CLN_SET_CERTIFICATE", record, answer)) return kResultNotDelivered;
  if (answer.status == tagCln_SetCertificateAnswer::kUnknownClient) return kResultUnknownClient;
  *reply = kReplyDone;
  if (answer.status != tagCln_SetCertificateAnswer::kCurrent) {
    ocl_RefreshCertInfo(record.serial.c_str());
    *reply = kReplyFollowUp;
  }
  return kResultHandled;
}

}  // namespace

int32_t ProcessOnUpdate(const RequestParams& params, CHttpResponse& response) {
  VGCR_TRACE(8, u"[ProcessOnUpdate] Enter");
  ClientIdentity identity(params);
  if (!ReadSettingsRequestIdentity(identity, kUpdateHandler)) return identity.result;
  VGCR_TRACE(73, u"[ProcessOnUpdate] FunctionType = %d, Uid = %s, Release = %s", identity.functionType,
             identity.uid, identity.release);
  int32_t reply = kReplyDone;
  int32_t result = kResultBadFunctionType;
  switch (identity.functionType) {
    case kReport: result = ReportUpdate(params, identity, false, &reply); break;
    case kReportAndAsk: result = ReportUpdate(params, identity, true, &reply); break;
    case kCertificate: result = ReportCertificate(params, identity, &reply); break;
    default: break;
  }
  if (result != kResultHandled) {
    VGCR_TRACE(69, u"[ProcessOnUpdate] Leave due error(%d)", result);
    return result;
  }
  result = WriteCodeReply(params, response, reply) ? kResultHandled : kResultBackOff;
  VGCR_TRACE(8, u"[ProcessOnUpdate] Leave successfully");
  return result;
}

int32_t ProcessOnLogonUser(const RequestParams& params, CHttpResponse& response) {
  VGCR_TRACE(68, u"%s - >>>", kLogonUser);
  ClientIdentity identity(params);
  identity.ReadFunctionType();
  // Only this report ends at once, silently, on a missing uid.
  if (!identity.ReadUid()) return kResultInvalidUid;
  tagCln_CgiOnLogonUser record;
  record.uid = identity.uid;
  VGCR_TRACE(68, u"%s - UID: [%s].", kLogonUser, record.uid);
  identity.CheckUid(kHandler);
  std::u16string value;
  if (params.GetString("LogonUser", &value, 256)) {
    VGCR_TRACE(68, u"%s - LogonUser: [%s].", kLogonUser, value);
    record.logonUser = value;
  }
  if (params.GetString("LogonUsrUID", &value, 36)) {
    VGCR_TRACE(68, u"%s - LogonUser GUID: [%s].", kLogonUser, value);
    record.logonUserId = value;
  }
  if (!identity.ok()) {
    VGCR_TRACE(68, u"%s - Leave due error(%d)", kLogonUser, identity.result);
    return identity.result;
  }
  int32_t result = kResultHandled;
  const bool sent = SendRecord(u"CMDHLV2_CLN_ON_LOGON_USER", record);
  if (sent) {
    result = WriteTextReply(params, response, "", 0) ? kResultHandled : kResultBackOff;
  } else {
    result = kResultNotDelivered;
    VGCR_TRACE(68, u"%s - Leave due error(%d)", kLogonUser, result);
  }
  VGCR_TRACE(68, u"%s - <<<", kLogonUser);
  return result;
}
