#include "isapi_OnUpdate.h"

#include "channel/cmdal2_OutputCmd.h"
#include "channel/rec_Lifecycle.h"
#include "channel/ser_MsgSerializer.h"
#include "hdl_Common.h"
#include "host/isapi_Result.h"
#include "host/rsp_Reply.h"
#include "support/dbg_Trace.h"

namespace {
constexpr char16_t kTraceSource[] = u".\\isapi_OnUpdate";
constexpr char16_t kLogonUser[] = u"ProcessOnLogonUser";
}  // namespace

int32_t ProcessOnLogonUser(const RequestParams& params, CHttpResponse& response) {
  VGCR_TRACE(68, u"%s - >>>", kLogonUser);
  int32_t result = kResultHandled;
  long functionType = 0;
  if (!ReadNumber(params, "functiontype", &functionType)) result = kResultBadFunctionType;
  tagCln_CgiOnLogonUser record;
  if (!params.GetString("uid", &record.uid, 36)) return kResultInvalidUid;
  VGCR_TRACE(68, u"%s - UID: [%s].", kLogonUser, record.uid);
  if (!IsValidUid(record.uid, kTraceSource, kLogonUser)) result = kResultInvalidUid;
  std::u16string value;
  if (params.GetString("LogonUser", &value, 256)) {
    VGCR_TRACE(68, u"%s - LogonUser: [%s].", kLogonUser, value);
    record.logonUser = value;
  }
  if (params.GetString("LogonUsrUID", &value, 36)) {
    VGCR_TRACE(68, u"%s - LogonUser GUID: [%s].", kLogonUser, value);
    record.logonUserId = value;
  }
  if (result != kResultHandled) {
    VGCR_TRACE(68, u"%s - Leave due error(%d)", kLogonUser, result);
    return result;
  }
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
