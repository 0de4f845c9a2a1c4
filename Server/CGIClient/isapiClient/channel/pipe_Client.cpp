#include "pipe_Client.h"

#include <cstring>

#include "platform/errors.h"
#include "host/mon_Metrics.h"
#include "platform/process.h"

namespace {
// A pipe that keeps answering "no resources" is not going to recover; give
// up after this many immediate retries of one piece instead of spinning.
constexpr int kMaxResourceRetries = 1000;
}  // namespace

bool CPipeClient::Failed() const {
  const uint32_t error = plat::LastError();
  mon::CountPipeFailure(name_, error);
  plat::SetLastError(error);
  return false;
}

bool CPipeClient::Open(const char16_t* name) {
  name_ = name;
  sendBoundMs_ = plat::kInfinite;
  for (;;) {
    if (pipe_.Open(name)) return pipe_.SetMessageReadMode() || Failed();
    if (plat::LastError() != plat::kErrorPipeBusy) return Failed();
    if (!plat::PipeClient::WaitAvailable(name, kPipeBusyWaitMs)) return Failed();
  }
}

bool CPipeClient::Open(const char16_t* name, const PipeBounds& bounds) {
  name_ = name;
  sendBoundMs_ = bounds.sendMs;
  const uint32_t start = plat::TickCount();
  for (;;) {
    if (pipe_.OpenForBoundedWrites(name)) return pipe_.SetMessageReadMode() || Failed();
    if (plat::LastError() != plat::kErrorPipeBusy) return Failed();
    // One deadline for every attempt: an instance freed and taken again
    // by another sender before our open must not restart the wait.
    const uint32_t spent = plat::TickCount() - start;
    if (spent >= bounds.busyWaitMs) {
      plat::SetLastError(plat::kErrorSemTimeout);
      return Failed();
    }
    if (!plat::PipeClient::WaitAvailable(name, bounds.busyWaitMs - spent)) return Failed();
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
  const uint32_t start = plat::TickCount();
  while (sent < total) {
    unsigned char block[kPipeChunkSize];
    uint32_t piece = total - sent < kPipeChunkSize ? total - sent : kPipeChunkSize;
    std::memcpy(block, bytes + sent, piece);
    uint32_t written = 0;
    bool ok;
    if (sendBoundMs_ == plat::kInfinite) {
      ok = pipe_.Write(block, piece, &written);
    } else {
      const uint32_t spent = plat::TickCount() - start;
      if (spent >= sendBoundMs_) {
        plat::SetLastError(plat::kErrorSemTimeout);
        return Failed();
      }
      ok = pipe_.WriteWithin(block, piece, &written, sendBoundMs_ - spent);
    }
    if (!ok) {
      if (plat::LastError() == plat::kErrorNoSystemResources && ++retries < kMaxResourceRetries) continue;
      return Failed();
    }
    retries = 0;
    sent += written;
  }
  *length = sent;
  return true;
}

void CPipeClient::Close() { pipe_.Close(); }
