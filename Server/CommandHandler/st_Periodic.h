// Work the service does on its own, every so often, on a thread of its
// own: deleting old logs, sweeping upload leftovers. Each such job is a
// Periodic: a first pass soon after start, then one every interval, until
// Stop.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace st {

class Periodic {
 public:
  // `work` is given a function that says whether the service is stopping,
  // to ask between two steps of a long pass.
  using Work = std::function<void(const std::function<bool()>& stopping)>;

  Periodic(std::chrono::milliseconds first, std::chrono::milliseconds interval, Work work)
      : first_(first), interval_(interval), work_(std::move(work)) {}
  ~Periodic() { Stop(); }
  Periodic(const Periodic&) = delete;
  Periodic& operator=(const Periodic&) = delete;

  void Start();
  // Ends the thread: at once while it waits, after the pass (or the step
  // of it) in progress otherwise.
  void Stop();

 private:
  void Run();
  bool Stopping();

  std::chrono::milliseconds first_, interval_;
  Work work_;
  std::mutex lock_;
  std::condition_variable wake_;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace st
