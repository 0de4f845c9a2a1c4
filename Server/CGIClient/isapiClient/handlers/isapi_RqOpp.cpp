#include "isapi_RqOpp.h"

#include <string>

#include "channel/cmdal_CmdAPI.h"
#include "channel/rec_Settings.h"
#include "hdl_Common.h"
#include "hdl_Identity.h"
#include "host/rsp_Reply.h"
#include "support/dbg_Trace.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\isapi_RqOpp";
constexpr HandlerName kHandler{kTraceSource, u"ProcessRqOpp"};
constexpr uint32_t kOppChangedFlag = 0x1000;
constexpr uint32_t kOppConfigEvent = 50;

// Types 1 and 2: the report goes one way and the client is told "1" even
// when the service could not be reached.
HandlerResult Report(const ClientIdentity& identity, const RequestParams& params, CHttpResponse& response) {
  tagCln_ActiveRestoreOpp record;
  record.SetUid(NarrowAnsi(identity.uid));
  record.SetRelease(NarrowAnsi(identity.release));
  record.operation = identity.functionType == 1 ? tagCln_ActiveRestoreOpp::kActivated
                                                : tagCln_ActiveRestoreOpp::kRestored;
  SendRecord(u"CMDHLV2_CLN_ACTIVE_RESTORE_OPP", record);
  return WriteCodeReply(params, response, kResultHandled) ? kResultHandled : kResultBackOff;
}

// Type 0: with chkdatabase=1 only when the server flagged a change.
HandlerResult Fetch(const ClientIdentity& identity, const RequestParams& params, CHttpResponse& response) {
  int32_t checkDatabase = 0;
  if (ReadNumber(params, "chkdatabase", &checkDatabase) && checkDatabase == 1) {
    bool changed = false;
    cmdal_IsConfigFlagSet(identity.uid.c_str(), kOppChangedFlag, &changed);
    if (!changed) {
      VGCR_TRACE(73, u"[ProcessRqOpp] No need to check DB");
      return kResultNoPendingChange;
    }
  }
  std::u16string text;
  if (!cmdal_GetOppSetting(identity.uid.c_str(), &text)) return kResultNotDelivered;
  if (!RemoveConfigRecord(identity.uid.c_str(), kOppConfigEvent)) {
    VGCR_TRACE(69, u"[ProcessRqOpp] The config record in DB is not successfully reset.");
  }
  return WriteWideTextReply(params, response, text.c_str()) ? kResultHandled : kResultBackOff;
}

}  // namespace

int32_t ProcessRqOpp(const RequestParams& params, CHttpResponse& response) {
  VGCR_TRACE(8, u"[ProcessRqOpp] Enter");
  ClientIdentity identity(params);
  if (!ReadSettingsRequestIdentity(identity, kHandler)) return identity.result;
  VGCR_TRACE(73, u"[ProcessRqOpp] FunctionType = %d, Uid = %s, Release = %s", identity.functionType, identity.uid,
             identity.release);
  HandlerResult result = kResultBadFunctionType;
  if (identity.functionType == 1 || identity.functionType == 2) {
    result = Report(identity, params, response);
  } else if (identity.functionType == 0) {
    result = Fetch(identity, params, response);
  }
  if (result != kResultHandled && result != kResultBackOff) {
    VGCR_TRACE(69, u"[ProcessRqOpp] Leave due error(%d)", result);
  }
  VGCR_TRACE(8, u"[ProcessRqOpp] Leave successfully");
  return result;
}
