#include <windows.h>

#include "platform/errors.h"
#include "platform/timer.h"

namespace plat {

WaitableTimer::~WaitableTimer() { Close(); }

bool WaitableTimer::Create() {
  Close();
  HANDLE h = ::CreateWaitableTimerW(nullptr, TRUE, nullptr);
  if (!h) return false;
  handle_ = h;
  return true;
}

bool WaitableTimer::Arm(uint32_t dueMs) {
  LARGE_INTEGER due;
  due.QuadPart = -static_cast<LONGLONG>(dueMs) * 10000;  // relative, 100 ns units
  return ::SetWaitableTimer(handle_, &due, 0, nullptr, nullptr, FALSE) != FALSE;
}

bool WaitableTimer::Cancel() { return ::CancelWaitableTimer(handle_) != FALSE; }

void WaitableTimer::Close() {
  if (handle_) ::CloseHandle(handle_);
  handle_ = nullptr;
}

}  // namespace plat
