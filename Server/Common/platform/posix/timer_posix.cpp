#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>

#include "platform/errors.h"
#include "platform/timer.h"

namespace plat {

WaitableTimer::~WaitableTimer() { Close(); }

bool WaitableTimer::Create() {
  Close();
  handle_ = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  if (handle_ < 0) {
    handle_ = kNoHandle;
    SetLastError(ErrorFromErrno(errno));
    return false;
  }
  return true;
}

bool WaitableTimer::Arm(uint32_t dueMs) {
  if (handle_ == kNoHandle) {
    SetLastError(kErrorInvalidHandle);
    return false;
  }
  itimerspec due{};
  // A due time of 0 fires at once; timerfd takes an all-zero value as "disarm".
  due.it_value.tv_sec = dueMs / 1000;
  due.it_value.tv_nsec = dueMs % 1000 * 1000000L + (dueMs == 0 ? 1 : 0);
  // Re-arming clears an expiry that nobody consumed: the timer is
  // non-signalled again until its new due time, as SetWaitableTimer does.
  if (::timerfd_settime(handle_, 0, &due, nullptr) != 0) {
    SetLastError(ErrorFromErrno(errno));
    return false;
  }
  return true;
}

bool WaitableTimer::Cancel() {
  if (handle_ == kNoHandle) {
    SetLastError(kErrorInvalidHandle);
    return false;
  }
  itimerspec due{};
  return ::timerfd_settime(handle_, 0, &due, nullptr) == 0;
}

void WaitableTimer::Close() {
  if (handle_ != kNoHandle) ::close(handle_);
  handle_ = kNoHandle;
}

}  // namespace plat
