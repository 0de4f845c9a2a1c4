#include "isapi_DLP.h"

#include "channel/rec_Settings.h"
#include "hdl_Common.h"
#include "hdl_Identity.h"
#include "host/rsp_Reply.h"
#include "support/dbg_Trace.h"

namespace {
constexpr char16_t kTraceSource[] = u".\\isapi_DLP";
constexpr HandlerName kHandler{kTraceSource, u"ProcessDLP"};
constexpr uint32_t kDlpConfigEvent = 118;
}  // namespace

int32_t ProcessDLP(const RequestParams& params, CHttpResponse& response) {
  VGCR_TRACE(8, u"[ProcessDLP] Enter >>");
  ClientIdentity identity(params);
  if (!ReadSettingsRequestIdentity(identity, kHandler)) return identity.result;
  VGCR_TRACE(73, u"[ProcessDLP] Uid = %s", identity.uid);
  if (identity.functionType != 1) {
    VGCR_TRACE(69, u"[ProcessDLP] functionID = %d", identity.functionType);
    return kResultBadFunctionType;
  }
  tagCln_ClientUid request;
  request.uid = identity.uid;
  CMsgSerializer message(u"CMDHLV2_GET_DLP_DEPLOY_SETTINGS", 1);
  if (!SendForAnswer(message, request)) {
    VGCR_TRACE(69, u"[ProcessDLP] Leave error(%d)", kResultNotDelivered);
    return kResultNotDelivered;
  }
  // The reset comes as soon as the service has answered, before the text is
  // read, and its failure is told with the configuration request's line,
  // name and all.
  if (!RemoveConfigRecord(identity.uid.c_str(), kDlpConfigEvent)) {
    VGCR_TRACE(69, u"[ProcessRqCfg] The config record in DB is not successfully reset.");
  }
  tagCln_SettingsText settings;
  if (!ReadAnswer(message, settings)) {
    VGCR_TRACE(69, u"[ProcessDLP] Leave error(%d)", kResultNotDelivered);
    return kResultNotDelivered;
  }
  const HandlerResult result =
      WriteWideTextReply(params, response, settings.text.c_str()) ? kResultHandled : kResultBackOff;
  VGCR_TRACE(8, u"[ProcessDLP] Leave <<");
  return result;
}
