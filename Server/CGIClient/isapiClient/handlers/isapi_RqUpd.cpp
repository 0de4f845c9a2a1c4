#include "isapi_RqUpd.h"

#include "channel/rec_Settings.h"
#include "hdl_Common.h"
#include "host/isapi_Result.h"
#include "host/rsp_Reply.h"
#include "support/dbg_Trace.h"

namespace {
constexpr char16_t kTraceSource[] = u".\\isapi_RqUpd";
}  // namespace

int32_t ProcessRqUpd(const RequestParams& params, CHttpResponse& response) {
  VGCR_TRACE(8, u"[ProcessRqUpd] Enter");
  tagCln_EmptyBody request;
  tagCln_SettingsText order;
  HandlerResult result = kResultNotDelivered;
  if (AskService(u"CMDHLV2_CLN_RQ_UPD", request, order)) {
    result = WriteWideTextReply(params, response, order.text.c_str()) ? kResultHandled : kResultBackOff;
  } else {
    // This request shares the configuration request's line, name and all.
    VGCR_TRACE(69, u"[ProcessRqCfg] Leave due error(%d)", result);
  }
  VGCR_TRACE(8, u"[ProcessRqUpd] Leave successfully");
  return result;
}
