#include "isapi_OnUpdate.h"

#include "channel/cmdal2_OutputCmd.h"
#include "channel/rec_Lifecycle.h"
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
}  // namespace

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
