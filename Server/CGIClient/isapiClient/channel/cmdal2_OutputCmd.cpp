#include "cmdal2_OutputCmd.h"

#include <memory>
#include <string>

#include "channel_Settings.h"
#include "host/mon_Metrics.h"
#include "pipe_Client.h"
#include "pipe_Util.h"
#include "platform/errors.h"
#include "support/dbg_Trace.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\cmdal2_OutputCmd";

// Finishes the message and takes its bytes; false (traced) when finishing
// it fails, which only a spill file can make happen.
bool TakeBytes(CMsgSerializer& message, std::unique_ptr<uint8_t[]>* bytes, uint32_t* size) {
  try {
    message.Finish();
  } catch (const CIPCMsgBufferException& e) {
    VGCR_TRACE(5, u"finishing message [%s] failed: %s (%s:%u)", message.CommandName(), e.Message(), e.SourceFile(),
               e.Line());
    return false;
  }
  bytes->reset(message.DetachBytes(size));
  return true;
}

bool RoundTrip(CMsgSerializer& message, const char16_t* replyPipeName, const char16_t* servicePipe) {
  CPipeServer server(ChannelReplyTimeoutMs(), ThreadReplyTimer());
  std::unique_ptr<uint8_t[]> bytes;
  uint32_t size = 0;
  if (!TakeBytes(message, &bytes, &size)) return false;
  if (!PipeSendAndRecvW(bytes.get(), size, replyPipeName, servicePipe, server, ThreadLocalEvent())) return false;
  message.HandOverSpillFile();
  std::string reply;
  auto append = [&reply](const char* piece, uint32_t length) { reply.append(piece, length); };
  if (!ReadReply(server, 1024, true, ChannelReplyTimeoutMs(), append)) {
    VGCR_TRACE(5, u"pipe [%s] no reply on [%s] within %u ms", servicePipe, replyPipeName, ChannelReplyTimeoutMs());
    mon::CountPipeFailure(servicePipe, plat::kErrorSemTimeout);
    return false;
  }
  if (reply.empty()) {
    VGCR_TRACE(5, u"pipe [%s] empty reply on [%s]", servicePipe, replyPipeName);
    return false;
  }
  try {
    return message.Load(reply.data(), static_cast<uint32_t>(reply.size()));
  } catch (const CIPCMsgBufferException& e) {
    VGCR_TRACE(5, u"pipe [%s] malformed reply on [%s]: %s", servicePipe, replyPipeName, e.Message());
    return false;
  }
}

}  // namespace

bool cmdal2_Send(CMsgSerializer& message) {
  CPipeClient client;
  if (!client.Open(kCommandHandlerPipe)) {
    VGCR_TRACE(5, u"init pipe client [%s] failed! err=[%d]", kCommandHandlerPipe, plat::LastError());
    return false;
  }
  std::unique_ptr<uint8_t[]> bytes;
  uint32_t size = 0;
  if (!TakeBytes(message, &bytes, &size)) {
    client.Close();
    return false;
  }
  uint32_t sent = size;
  if (!client.Send(bytes.get(), &sent)) {
    VGCR_TRACE(5, u"pipe [%s] send failed!. err=[%d]", kCommandHandlerPipe, plat::LastError());
    client.Close();
    return false;
  }
  message.HandOverSpillFile();
  client.Close();
  return true;
}

bool cmdal2_SendAndRecv(CMsgSerializer& message, const char16_t* replyPipeName) {
  return RoundTrip(message, replyPipeName, kCommandHandlerPipe);
}

bool cmdal2_SendAndRecvHandler2(CMsgSerializer& message, const char16_t* replyPipeName) {
  return RoundTrip(message, replyPipeName, kCommandHandler2Pipe);
}
