#include "isapi_PollingSetting.h"

#include <string>

#include "channel/cmdal2_OutputCmd.h"
#include "channel/ser_MsgSerializer.h"
#include "hdl_Common.h"
#include "host/rsp_Reply.h"
#include "support/dbg_Trace.h"
#include "support/str_Format.h"

namespace {
constexpr char16_t kTraceSource[] = u".\\isapi_PollingSetting";
}

int32_t tagCln_Heartbeat::Get(std::size_t offset) const {
  const uint8_t* at = block + offset;
  return static_cast<int32_t>(uint32_t{at[0]} | uint32_t{at[1]} << 8 | uint32_t{at[2]} << 16 | uint32_t{at[3]} << 24);
}

void tagCln_Heartbeat::Set(std::size_t offset, int32_t value) { PutLE(block + offset, 4, value); }

// Cut to units - 1 characters: the field always keeps its terminator.
void tagCln_Heartbeat::SetText(std::size_t offset, std::size_t units, const std::u16string& text) {
  const std::size_t n = text.size() < units ? text.size() : units - 1;
  for (std::size_t i = 0; i < units; ++i) PutLE(block + offset + 2 * i, 2, i < n ? text[i] : 0);
}

bool tagCln_Heartbeat::Serialize(ISerializer& s) { return ser::WriteBlock(s, block, kSize); }
bool tagCln_Heartbeat::Deserialize(ISerializer& s) { return ser::ReadBlock(s, block, kSize); }

int32_t ProcessPollingSetting(const RequestParams& params, CHttpResponse& response) {
  tagCln_Heartbeat record;
  VGCR_TRACE(8, u"[ProcessPollingSetting] Enter");
  int32_t status = 1;
  long functionType = 0;
  if (ReadNumber(params, "functiontype", &functionType)) {
    record.Set(tagCln_Heartbeat::kRequestType, static_cast<int32_t>(functionType));
  } else {
    status = -3;
  }
  std::u16string uid;
  if (params.GetString("uid", &uid, 36)) {
    record.SetText(tagCln_Heartbeat::kUid, tagCln_Heartbeat::kUidUnits, uid);
  } else {
    status = -6;
  }
  if (!IsValidUid(uid, kTraceSource, u"ProcessPollingSetting")) status = -6;
  std::u16string debugInfo;
  params.GetString("DebugInfo", &debugInfo, 512);
  record.SetText(tagCln_Heartbeat::kDebugInfo, tagCln_Heartbeat::kDebugInfoUnits, debugInfo);
  if (status != 1) {
    VGCR_TRACE(8, u"[ProcessPollingSetting] Leave due error(%d)", status);
    return status;
  }
  VGCR_TRACE(8, u"[ProcessPollingSetting] nIsPollingSetting = %d, Uid = %s",
             record.Get(tagCln_Heartbeat::kRequestType), uid);
  bool ok = false;
  try {
    CMsgSerializer message(u"CMDHLV2_HEARTBEAT_NOTIFY", 1);
    VGCR_TRACE(8, u"[ProcessPollingSetting] Create CMsgSerializer object");
    message << record;
    if (cmdal2_SendAndRecv(message, message.Identifier().c_str())) {
      uint32_t leading = 0;
      ok = ser::ReadU32(message, &leading) && record.Deserialize(message);
    }
  } catch (const CIPCMsgBufferException&) {
    ok = false;
  }
  if (!ok) {
    VGCR_TRACE(8, u"[ProcessPollingSetting] Leave error(%d)", -5);
    return -5;
  }
  const int32_t individual = record.Get(tagCln_Heartbeat::kIndividualSetting);
  const int32_t messageId = record.Get(tagCln_Heartbeat::kMessageId);
  const int32_t sequence = record.Get(tagCln_Heartbeat::kSettingSequence);
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
  return WriteTextReply(params, response, body, length) ? 1 : -49;
}
