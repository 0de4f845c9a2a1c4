#include <poll.h>

#include <cerrno>
#include <chrono>

#include "platform/errors.h"
#include "platform/handle.h"

namespace plat {

uint32_t WaitForAny(const WaitHandle* handles, uint32_t count, uint32_t timeoutMs) {
  if (count == 0 || count > 64 || handles == nullptr) {
    SetLastError(kErrorInvalidParameter);
    return kWaitFailed;
  }
  pollfd fds[64];
  for (uint32_t i = 0; i < count; ++i) {
    if (!handles[i].valid()) {
      SetLastError(kErrorInvalidHandle);
      return kWaitFailed;
    }
    fds[i] = pollfd{handles[i].native, POLLIN, 0};
  }
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    int waitMs = -1;
    if (timeoutMs != kInfinite) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
      waitMs = left.count() > 0 ? static_cast<int>(left.count()) : 0;
    }
    int n = ::poll(fds, count, waitMs);
    if (n < 0) {
      if (errno == EINTR) continue;
      SetLastError(ErrorFromErrno(errno));
      return kWaitFailed;
    }
    if (n == 0) return kWaitTimeout;
    for (uint32_t i = 0; i < count; ++i) {
      if (fds[i].revents & POLLNVAL) {
        SetLastError(kErrorInvalidHandle);
        return kWaitFailed;
      }
      // A hang-up or an error completes the operation too: the read that
      // follows reports what happened.
      if (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) return kWaitObject0 + i;
    }
  }
}

uint32_t WaitForOne(WaitHandle handle, uint32_t timeoutMs) {
  return WaitForAny(&handle, 1, timeoutMs);
}

}  // namespace plat
