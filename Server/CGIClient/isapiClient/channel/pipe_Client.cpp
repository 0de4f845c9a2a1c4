#include "pipe_Client.h"

#include <cstring>

#include "platform/errors.h"

namespace {
// A pipe that keeps answering "no resources" is not going to recover; give
// up after this many immediate retries of one piece instead of spinning.
constexpr int kMaxResourceRetries = 1000;
}  // namespace

bool CPipeClient::Open(const char16_t* name) {
  for (;;) {
    if (pipe_.Open(name)) return pipe_.SetMessageReadMode();
    if (plat::LastError() != plat::kErrorPipeBusy) return false;
    if (!plat::PipeClient::WaitAvailable(name, kPipeBusyWaitMs)) return false;
  }
}

bool CPipeClient::Send(const void* data, uint32_t* length) {
  if (length == nullptr) {
    plat::SetLastError(plat::kErrorInvalidParameter);
    return false;
  }
  const uint32_t total = *length;
  *length = 0;
  const auto* bytes = static_cast<const unsigned char*>(data);
  uint32_t sent = 0;
  int retries = 0;
  while (sent < total) {
    unsigned char block[kPipeChunkSize];
    uint32_t piece = total - sent < kPipeChunkSize ? total - sent : kPipeChunkSize;
    std::memcpy(block, bytes + sent, piece);
    uint32_t written = 0;
    if (!pipe_.Write(block, piece, &written)) {
      if (plat::LastError() == plat::kErrorNoSystemResources && ++retries < kMaxResourceRetries) continue;
      return false;
    }
    retries = 0;
    sent += written;
  }
  *length = sent;
  return true;
}

void CPipeClient::Close() { pipe_.Close(); }
