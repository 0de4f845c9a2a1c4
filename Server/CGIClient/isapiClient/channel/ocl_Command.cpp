#include "ocl_Command.h"

#include "channel_Settings.h"
#include "pipe_Client.h"
#include "platform/errors.h"
#include "support/dbg_Trace.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\ocl_Command";

bool SendTo(const char16_t* pipeName, CMsgSerializer& message) {
  CPipeClient client;
  if (!client.Open(pipeName)) {
    VGCR_TRACE(5, u"Initial pipe client failed! err=%d", plat::LastError());
    return false;
  }
  try {
    message.Finish();
  } catch (const CIPCMsgBufferException& e) {
    VGCR_TRACE(5, u"finishing message [%s] failed: %s", message.CommandName(), e.Message());
    client.Close();
    return false;
  }
  uint32_t size = message.GetSize();
  if (!client.Send(message.Buffer().Data(), &size)) {
    VGCR_TRACE(5, u"pipe send failed!. err=%d", plat::LastError());
    client.Close();
    return false;
  }
  message.HandOverSpillFile();
  client.Close();
  return true;
}

}  // namespace

bool ocl_SendToThreatLogServer(CMsgSerializer& message) { return SendTo(kThreatLogPipe, message); }
bool ocl_SendToServer(CMsgSerializer& message) { return SendTo(kServerNotifyPipe, message); }

void ocl_RefreshCertInfo(const char16_t* argument) {
  CMsgSerializer message(u"VG_REFRESH_CERT_INFO", 1);
  try {
    ser::WriteWString(message, argument ? argument : u"");
  } catch (const CIPCMsgBufferException&) {
    return;
  }
  ocl_SendToServer(message);
}
