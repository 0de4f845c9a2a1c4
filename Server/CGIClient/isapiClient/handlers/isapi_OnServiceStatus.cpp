#include "isapi_OnServiceStatus.h"

#include "channel/cmdal2_OutputCmd.h"
#include "channel/cmdal_CmdAPI.h"
#include "channel/rec_Lifecycle.h"
#include "channel/rec_Settings.h"
#include "channel/ser_MsgSerializer.h"
#include "hdl_Common.h"
#include "hdl_Identity.h"
#include "host/isapi_Result.h"
#include "host/rsp_Reply.h"
#include "support/dbg_Trace.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\isapi_OnServiceStatus";
constexpr HandlerName kHandler{kTraceSource, u"ProcessOnServiceStatus"};
constexpr uint32_t kRemovalEvent = 115;

constexpr const char* kComponents[9] = {"av", "as", "wr", "at_office", "fw", "aegis", "dlp", "ncie", "ccsf"};

// What one function type does; `replyDue` when the status goes back as text.
int32_t RunFunctionType(int32_t functionType, const RequestParams& params, const std::u16string& uid, bool* replyDue) {
  *replyDue = false;
  switch (functionType) {
    case 1: {
      int32_t state = 0;
      ReadNumber(params, "scheduleupdatestatus", &state);
      cmdal_SetClinetCfg_SUStatus(uid.c_str(), state != 0);
      return kResultNotDelivered;  // the client always sees a failure for this type
    }
    case 2: {
      int32_t value = 0;
      ReadNumber(params, "enablewarningflag", &value);
      const auto warning = static_cast<uint32_t>(value);
      if (!cmdal_SetClinetCfg_WarningSetting(uid.c_str(), &warning)) return kResultNotDelivered;
      *replyDue = true;
      return kResultHandled;
    }
    case 3: {
      int32_t status = kResultHandled;
      if (!ReportClientProtectionStatus(params, uid, &status)) {
        return status == kResultHandled ? kResultNotDelivered : status;
      }
      *replyDue = true;
      return status;
    }
    case 4: {
      std::u16string release;
      *replyDue = true;
      if (!params.GetString("release", &release, 7)) return kResultMissingRelease;
      if (!RemoveConfigRecord(uid.c_str(), kRemovalEvent, release.c_str())) {
        VGCR_TRACE(68, u"[ProcessRqIni] The config record in DB is not successfully reset.");
      }
      return kResultHandled;
    }
    default:
      return kResultBadFunctionType;
  }
}

}  // namespace

bool ReportClientProtectionStatus(const RequestParams& params, const std::u16string& uid, int32_t* status) {
  CComplianceClientProtection record;
  int on[9];
  for (int i = 0; i < 9; ++i) {
    int32_t value = 0;
    ReadNumber(params, kComponents[i], &value);
    on[i] = value != 0;
    if (on[i]) record.mask |= 1u << i;
  }
  record.uid = uid;
  VGCR_TRACE(73,
             u"%s - [ProcessOnServiceStatus] client protection status: AV=%d, AS=%d, WR=%d, AT_OFFICE=%d, FW=%d, "
             u"AEGIS=%d, DLP=%d, NCIE=%d, CCSF=%d",
             u"ReportClientProtectionStatus", on[0], on[1], on[2], on[3], on[4], on[5], on[6], on[7], on[8]);
  CMsgSerializer message(u"CMDHLV2_CLN_ON_PROTECTION_STATUS", 1);
  const bool ok = SendForAnswer(message, record);
  VGCR_TRACE(68, u"[ProcessOnServiceStatus] result:[%d]", ok ? 1 : 0);
  if (!ok) {
    *status = kResultNotDelivered;
    VGCR_TRACE(69, u"[ProcessRqCfg] Leave due error(%d)", *status);
    return false;
  }
  tagCln_ClientExists answer;
  if (!ReadAnswer(message, answer)) {
    *status = kResultNotDelivered;
    return false;
  }
  VGCR_TRACE(68, u"[ProcessOnServiceStatus] Client Existence:[%d]", answer.exists);
  if (answer.exists == 0) {
    *status = kResultUnknownClient;
    return false;
  }
  return true;
}

int32_t ProcessOnServiceStatus(const RequestParams& params, CHttpResponse& response) {
  VGCR_TRACE(68, u"[ProcessOnServiceStatus] Enter");
  ClientIdentity identity(params);
  identity.ReadFunctionType();
  identity.ReadUid();
  identity.CheckUid(kHandler);  // also on an empty uid
  if (!identity.ok()) {
    VGCR_TRACE(69, u"[ProcessOnServiceStatus] Leave due error(%d)", identity.result);
    return identity.result;
  }
  const std::u16string& uid = identity.uid;
  VGCR_TRACE(68, u"[ProcessOnServiceStatus] FunctionType = %d, Uid = %s", identity.functionType, uid);
  bool replyDue = false;
  int32_t status = kResultHandled;
  int32_t result = kResultHandled;
  try {
    status = RunFunctionType(identity.functionType, params, uid, &replyDue);
  } catch (const CIPCMsgBufferException&) {
    status = kResultNotDelivered;  // a reply too short for its fields
    replyDue = false;
  }
  if (replyDue) {
    result = WriteCodeReply(params, response, status) ? kResultHandled : kResultBackOff;
  } else {
    result = status;
    VGCR_TRACE(69, u"[ProcessOnServiceStatus] Leave due error(%d)", status);
  }
  VGCR_TRACE(68, u"[ProcessOnServiceStatus] Leave");
  return result;
}
