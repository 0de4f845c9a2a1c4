// A manual-reset waitable timer (CreateWaitableTimerW / SetWaitableTimer);
// timerfd on Linux. It is signalled from its due time until it is armed again.
#pragma once

#include <cstdint>

#include "platform/handle.h"

namespace plat {

class WaitableTimer {
 public:
  WaitableTimer() = default;
  ~WaitableTimer();
  WaitableTimer(const WaitableTimer&) = delete;
  WaitableTimer& operator=(const WaitableTimer&) = delete;

  bool Create();
  // Arms the timer to fire once, dueMs from now; arming resets the signal.
  bool Arm(uint32_t dueMs);
  bool Cancel();
  void Close();

  bool IsOpen() const { return handle_ != kNoHandle; }
  WaitHandle Handle() const { return WaitHandle{handle_}; }

 private:
  NativeHandle handle_ = kNoHandle;
};

}  // namespace plat
