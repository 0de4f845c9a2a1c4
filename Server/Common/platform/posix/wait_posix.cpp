// WaitForMultipleObjects over descriptors: poll(), or epoll when a handle
// asks that only one waiter be woken (a listening socket shared by a pipe's
// instances; poll() would wake every thread waiting on it).
#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <limits>

#include "platform/errors.h"
#include "platform/handle.h"

namespace plat {
namespace {

using Clock = std::chrono::steady_clock;

// What is left of the wait as poll() takes it: -1 for ever, rounded up so
// that a wait never ends early, at most INT_MAX.
int MillisecondsLeft(uint32_t timeoutMs, Clock::time_point deadline) {
  if (timeoutMs == kInfinite) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  if (left <= 0) return 0;
  return left > std::numeric_limits<int>::max() ? std::numeric_limits<int>::max() : static_cast<int>(left);
}

// A wake-one sleep never lasts longer than this before looking again: on
// kernels that send two wake-ups to one sleeper, a client must not wait in
// the backlog until that thread is done with the first.
constexpr int kWakeOneSliceMs = 100;

int SliceOf(int waitMs) { return waitMs < 0 || waitMs > kWakeOneSliceMs ? kWakeOneSliceMs : waitMs; }

// The lowest signalled index, kWaitTimeout when none is, as the poll said.
uint32_t FirstSignalled(const pollfd* fds, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    if (fds[i].revents & POLLNVAL) {
      SetLastError(kErrorInvalidHandle);
      return kWaitFailed;
    }
    // A hang-up or an error completes the operation too: the read that
    // follows reports what happened.
    if (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) return kWaitObject0 + i;
  }
  return kWaitTimeout;
}

// One epoll set per thread, filled for one wait and emptied after it.
class WaitSet {
 public:
  ~WaitSet() {
    if (fd_ >= 0) ::close(fd_);
  }
  int fd() {
    if (fd_ < 0) fd_ = ::epoll_create1(EPOLL_CLOEXEC);
    return fd_;
  }

 private:
  int fd_ = -1;
};
thread_local WaitSet t_waitSet;

// Sleeps in epoll_wait until a handle is ready (the wake-one handles added
// exclusively), then polls to report the lowest ready index, as Windows
// does. Returns kWaitFailed with the error set when epoll cannot be used,
// so that the caller falls back to poll().
uint32_t WaitWithEpoll(const WaitHandle* handles, pollfd* fds, uint32_t count, uint32_t timeoutMs,
                       Clock::time_point deadline, bool* unusable) {
  const int set = t_waitSet.fd();
  uint32_t added = 0;
  for (; added < count; ++added) {
    epoll_event event{};
    event.events = EPOLLIN | (handles[added].wakeOne ? EPOLLEXCLUSIVE : 0u);
    event.data.u32 = added;
    if (set < 0 || ::epoll_ctl(set, EPOLL_CTL_ADD, fds[added].fd, &event) != 0) break;
  }
  uint32_t result = kWaitFailed;
  if (added < count) {
    *unusable = true;  // a descriptor epoll does not take, or the same one twice
  } else {
    for (;;) {
      epoll_event ready[8];
      const int waitMs = MillisecondsLeft(timeoutMs, deadline);
      const int n = ::epoll_wait(set, ready, 8, SliceOf(waitMs));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        SetLastError(ErrorFromErrno(errno));
        break;
      }
      if (n == 0 && waitMs >= 0 && waitMs <= kWakeOneSliceMs) {
        result = kWaitTimeout;
        break;
      }
      // Another waiter may have taken what woke us (a client accepted by
      // another instance): then sleep again.
      if (::poll(fds, count, 0) < 0 && errno != EINTR) {
        SetLastError(ErrorFromErrno(errno));
        break;
      }
      result = FirstSignalled(fds, count);
      if (result != kWaitTimeout) break;
    }
  }
  for (uint32_t i = 0; i < added; ++i) ::epoll_ctl(set, EPOLL_CTL_DEL, fds[i].fd, nullptr);
  return result;
}

uint32_t WaitWithPoll(pollfd* fds, uint32_t count, uint32_t timeoutMs, Clock::time_point deadline) {
  for (;;) {
    int n = ::poll(fds, count, MillisecondsLeft(timeoutMs, deadline));
    if (n < 0) {
      if (errno == EINTR) continue;
      SetLastError(ErrorFromErrno(errno));
      return kWaitFailed;
    }
    if (n == 0) return kWaitTimeout;
    const uint32_t first = FirstSignalled(fds, count);
    if (first != kWaitTimeout) return first;
  }
}

}  // namespace

uint32_t WaitForAny(const WaitHandle* handles, uint32_t count, uint32_t timeoutMs) {
  if (count == 0 || count > 64 || handles == nullptr) {
    SetLastError(kErrorInvalidParameter);
    return kWaitFailed;
  }
  pollfd fds[64];
  bool wakeOne = false;
  for (uint32_t i = 0; i < count; ++i) {
    if (!handles[i].valid()) {
      SetLastError(kErrorInvalidHandle);
      return kWaitFailed;
    }
    fds[i] = pollfd{handles[i].native, POLLIN, 0};
    wakeOne = wakeOne || handles[i].wakeOne;
  }
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  // Something may be ready already: then no sleep, and no epoll set.
  if (wakeOne && timeoutMs != 0) {
    if (::poll(fds, count, 0) > 0) {
      const uint32_t first = FirstSignalled(fds, count);
      if (first != kWaitTimeout) return first;
    }
    bool unusable = false;
    const uint32_t result = WaitWithEpoll(handles, fds, count, timeoutMs, deadline, &unusable);
    if (!unusable) return result;
  }
  return WaitWithPoll(fds, count, timeoutMs, deadline);
}

uint32_t WaitForOne(WaitHandle handle, uint32_t timeoutMs) {
  return WaitForAny(&handle, 1, timeoutMs);
}

}  // namespace plat
