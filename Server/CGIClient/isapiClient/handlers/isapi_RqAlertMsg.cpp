#include "isapi_RqAlertMsg.h"

#include <string>

#include "channel/cmdal_CmdAPI.h"
#include "channel/rec_Settings.h"
#include "hdl_Identity.h"
#include "host/rsp_Reply.h"
#include "support/dbg_Trace.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\isapi_RqAlertMsg";

bool IsServed(int32_t kind) {
  for (int32_t served : kAlertMessageKinds) {
    if (kind == served) return true;
  }
  return false;
}

}  // namespace

int32_t ProcessRqAlertMsg(const RequestParams& params, CHttpResponse& response) {
  VGCR_TRACE(8, u"[ProcessRqAlertMsg] Enter");
  ClientIdentity identity(params);
  if (!identity.ReadFunctionType()) {
    VGCR_TRACE(69, u"[ProcessRqAlertMsg] Leave due error(%d)", identity.result);
    return identity.result;
  }
  // Alert texts are the same for every client: the query is given an empty
  // uid whatever the request carries.
  const std::u16string uid;
  VGCR_TRACE(73, u"[ProcessRqAlertMsg] FunctionType = %d, Uid = %s", identity.functionType, uid);
  HandlerResult result = kResultBadFunctionType;
  std::u16string text;
  if (!IsServed(identity.functionType)) {
    VGCR_TRACE(69, u"[ProcessRqAlertMsg] Leave due error(%d)", result);
  } else if (!cmdal_GetClnAlertMsg(uid.c_str(), identity.functionType, &text)) {
    result = kResultNotDelivered;
    VGCR_TRACE(69, u"[ProcessRqAlertMsg] Leave due error(%d)", result);
  } else {
    result = WriteWideTextReply(params, response, text.c_str()) ? kResultHandled : kResultBackOff;
  }
  VGCR_TRACE(8, u"[ProcessRqAlertMsg] Leave successfully");
  return result;
}
