#include "cmdal_OutputCmd.h"

#include <cstring>

#include "channel_Settings.h"
#include "host/mon_Metrics.h"
#include "pipe_Client.h"
#include "pipe_Util.h"
#include "platform/errors.h"
#include "support/dbg_Trace.h"

namespace {
constexpr char16_t kTraceSource[] = u".\\cmdal_OutputCmd";
constexpr uint32_t kReplyPieceBytes = 2046;
}  // namespace

bool cmdal_SendText(const char16_t* text, uint32_t byteLength) {
  CPipeClient client;
  if (!client.Open(kCommandHandlerPipe)) {
    VGCR_TRACE(5, u"init pipe client [%s] failed! err=[%d]", kCommandHandlerPipe, plat::LastError());
    return false;
  }
  uint32_t sent = byteLength;
  if (!client.Send(text, &sent)) {
    VGCR_TRACE(5, u"pipe [%s] send failed!. err=[%d]", kCommandHandlerPipe, plat::LastError());
    client.Close();
    return false;
  }
  client.Close();
  return true;
}

bool cmdal_SendTextAndRecv(const char16_t* text, uint32_t byteLength, const char16_t* replyPipeName,
                           std::u16string* reply) {
  reply->clear();
  CPipeServer server(ChannelReplyTimeoutMs(), ThreadReplyTimer());
  if (!PipeSendAndRecvW(text, byteLength, replyPipeName, kCommandHandlerPipe, server, ThreadLocalEvent())) return false;
  // Each piece is terminated behind its last whole unit and appended up to
  // its first NUL, as a C string would be.
  auto append = [reply](const char* piece, uint32_t length) {
    char16_t units[kReplyPieceBytes / 2 + 1];
    std::memcpy(units, piece, length & ~1u);
    units[length / 2] = u'\0';
    reply->append(units);
  };
  if (!ReadReply(server, kReplyPieceBytes, false, ChannelReplyTimeoutMs(), append)) {
    VGCR_TRACE(5, u"pipe [%s] no reply on [%s] within %u ms", kCommandHandlerPipe, replyPipeName, ChannelReplyTimeoutMs());
    mon::CountPipeFailure(kCommandHandlerPipe, plat::kErrorSemTimeout);
    reply->clear();
    return false;
  }
  return true;
}
