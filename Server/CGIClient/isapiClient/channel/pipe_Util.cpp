#include "pipe_Util.h"

#include <vector>

#include "channel/pipe_Client.h"
#include "platform/errors.h"
#include "platform/process.h"
#include "support/dbg_Trace.h"
#include "support/str_Format.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\pipe_Util";

thread_local ThreadRoundTripObjects* t_kept = nullptr;

}  // namespace

ThreadRoundTripObjects::ThreadRoundTripObjects() : previous_(t_kept) { t_kept = this; }

ThreadRoundTripObjects::~ThreadRoundTripObjects() { t_kept = previous_; }

plat::Event* ThreadRoundTripObjects::LocalEvent() {
  if (!localEvent_.IsOpen()) {
    char16_t name[64];
    fmt16::Format(name, 64, u"PIPE_OBJ_LOCAL_EVENT_%u", plat::CurrentThreadId());
    if (!localEvent_.Create(name, false)) return nullptr;
  }
  return &localEvent_;
}

plat::Event* ThreadLocalEvent() { return t_kept ? t_kept->LocalEvent() : nullptr; }

plat::WaitableTimer* ThreadReplyTimer() { return t_kept ? t_kept->ReplyTimer() : nullptr; }

bool PipeSendAndRecvW(const void* bytes, uint32_t length, const char16_t* replyPipeName,
                      const char16_t* servicePipeName, CPipeServer& server, plat::Event* localEvent) {
  if (!server.Initial(replyPipeName, 1, localEvent)) {
    VGCR_TRACE(5, u"[PipeSendAndRecvW] Initial pipe server failed!");
    return false;
  }
  CPipeClient client;
  if (!client.Open(servicePipeName)) {
    VGCR_TRACE(5, u"[PipeSendAndRecvW] Initial pipe client failed! err=%d", plat::LastError());
    return false;
  }
  uint32_t sent = length;
  if (!client.Send(bytes, &sent)) {
    VGCR_TRACE(5, u"[PipeSendAndRecvW] pipe send failed!. err=%d", plat::LastError());
    client.Close();
    return false;
  }
  client.Close();
  return true;
}

bool ReadReply(CPipeServer& server, uint32_t pieceSize, bool stopOnShortRead, uint32_t totalTimeoutMs,
               const std::function<void(const char* piece, uint32_t length)>& take) {
  std::vector<char> piece(pieceSize);
  const uint32_t start = plat::TickCount();
  for (;;) {
    uint32_t length = pieceSize;
    if (server.Recv(piece.data(), &length, nullptr) == 0) break;  // the end, or a failure
    if (server.ExtraSignalled()) return false;                     // the service went quiet
    take(piece.data(), length);
    if (stopOnShortRead && length < pieceSize) break;
    if (plat::TickCount() - start > totalTimeoutMs) return false;
  }
  return true;
}
