#include "st_Periodic.h"

namespace st {

void Periodic::Start() {
  if (thread_.joinable()) return;
  stop_ = false;
  thread_ = std::thread([this] { Run(); });
}

void Periodic::Stop() {
  {
    std::lock_guard guard(lock_);
    stop_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) thread_.join();
}

bool Periodic::Stopping() {
  std::lock_guard guard(lock_);
  return stop_;
}

void Periodic::Run() {
  std::chrono::milliseconds wait = first_;
  for (;;) {
    {
      std::unique_lock guard(lock_);
      if (wake_.wait_for(guard, wait, [&] { return stop_; })) return;
    }
    work_([this] { return Stopping(); });
    wait = interval_;
  }
}

}  // namespace st
