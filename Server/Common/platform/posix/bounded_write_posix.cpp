// The pipe client's writes that give up: a message the reader has not made
// room for within the bound is not written at all. Kept apart from the rest
// of the client, which blocks like WriteFile does.
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>

#include "platform/errors.h"
#include "platform/pipe.h"

namespace plat {

bool PipeClient::OpenForBoundedWrites(const char16_t* name) {
  // Every write below is non-blocking on its own, so any open end will do.
  return Open(name);
}

bool PipeClient::WriteWithin(const void* data, uint32_t size, uint32_t* written, uint32_t timeoutMs) {
  if (written) *written = 0;
  if (handle_ == kNoHandle) {
    SetLastError(kErrorInvalidHandle);
    return false;
  }
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    // A SOCK_SEQPACKET send takes the whole message or nothing.
    ssize_t n = ::send(handle_, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n >= 0) {
      if (written) *written = static_cast<uint32_t>(n);
      return true;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      SetLastError(errno == ENOBUFS ? kErrorNoSystemResources : ErrorFromErrno(errno));
      return false;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
      SetLastError(kErrorSemTimeout);
      return false;
    }
    pollfd pfd{handle_, POLLOUT, 0};
    ::poll(&pfd, 1, static_cast<int>(left));
  }
}

}  // namespace plat
