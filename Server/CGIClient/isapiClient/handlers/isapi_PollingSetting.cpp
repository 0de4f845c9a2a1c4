#include "isapi_PollingSetting.h"

#include <string>

#include "channel/rec_Lifecycle.h"
#include "channel/ser_MsgSerializer.h"
#include "hdl_Common.h"
#include "hdl_Identity.h"
#include "host/isapi_Result.h"
#include "host/rsp_Reply.h"
#include "support/dbg_Trace.h"
#include "support/str_Format.h"

namespace {
constexpr char16_t kTraceSource[] = u".\\isapi_PollingSetting";
constexpr HandlerName kHandler{kTraceSource, u"ProcessPollingSetting"};
}

int32_t ProcessPollingSetting(const RequestParams& params, CHttpResponse& response) {
  tagCln_Heartbeat record;
  VGCR_TRACE(8, u"[ProcessPollingSetting] Enter");
  ClientIdentity identity(params);
  if (identity.ReadFunctionType()) record.Put(tagCln_Heartbeat::kRequestType, identity.functionType);
  if (identity.ReadUid()) record.Put(tagCln_Heartbeat::kUid, identity.uid);
  identity.CheckUid(kHandler);
  // The debug information is copied whether or not it was there.
  std::u16string debugInfo;
  params.GetString("DebugInfo", &debugInfo, 512);
  record.Put(tagCln_Heartbeat::kDebugInfo, debugInfo);
  if (!identity.ok()) {
    VGCR_TRACE(8, u"[ProcessPollingSetting] Leave due error(%d)", identity.result);
    return identity.result;
  }
  VGCR_TRACE(8, u"[ProcessPollingSetting] nIsPollingSetting = %d, Uid = %s",
             static_cast<int32_t>(record.Number(tagCln_Heartbeat::kRequestType)), identity.uid);
  CMsgSerializer message(u"CMDHLV2_HEARTBEAT_NOTIFY", 1);
  VGCR_TRACE(8, u"[ProcessPollingSetting] Create CMsgSerializer object");
  // The answer's leading receiving status is read and not used.
  tagCln_HeartbeatAnswer answer;
  if (!SendForAnswer(message, record) || !ReadAnswer(message, answer)) {
    VGCR_TRACE(8, u"[ProcessPollingSetting] Leave error(%d)", kResultNotDelivered);
    return kResultNotDelivered;
  }
  const int32_t individual = static_cast<int32_t>(answer.heartbeat.Number(tagCln_Heartbeat::kIndividualSetting));
  const int32_t messageId = static_cast<int32_t>(answer.heartbeat.Number(tagCln_Heartbeat::kMessageId));
  const int32_t sequence = static_cast<int32_t>(answer.heartbeat.Number(tagCln_Heartbeat::kSettingSequence));
  VGCR_TRACE(8,
             u"[ProcessPollingSetting]::ISAPI_RQPS_HEARTBEAT:RECEIVING_STATUS=%d, INDIVIDUAL_SETTING=%d, MESSAGE_ID=%d, "
             u"SETTING_SEQUENCE=%d",
             1, individual, messageId, sequence);
  char body[256];
  const std::size_t length =
      fmt16::Format(body, sizeof body,
                    "[Polling_Response]\r\nRECEIVING_STATUS=%d\r\nINDIVIDUAL_SETTING=%d\r\nMESSAGE_ID=%d\r\n"
                    "SETTING_SEQUENCE=%d",
                    1, individual, messageId, sequence);
  return WriteTextReply(params, response, body, length) ? kResultHandled : kResultBackOff;
}
