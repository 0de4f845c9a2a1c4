// The shared schedule: what each client does next and when, one min-heap
// under one lock, from which the connection threads take what is due.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

namespace agentsim {

enum class Action : uint8_t { kRegister, kHeartbeat, kSettings, kAlert, kLog, kStatus, kLogon, kBurstLog };

struct Due {
  int64_t atUs;  // microseconds since the run started
  uint32_t client;
  Action action;
};

class Schedule {
 public:
  using Clock = std::chrono::steady_clock;
  // The run starts now and lasts `seconds`.
  explicit Schedule(double seconds)
      : start_(Clock::now()),
        end_(start_ + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))) {}

  int64_t NowUs() const;
  void Push(const Due& due);
  void PushMany(const std::vector<Due>& many);
  // Waits for the earliest action to be due and takes it; false when the run
  // is over (its end has come, Stop was called, or nothing is left to do).
  bool Take(Due* due);
  // The taker of an action is done with it (its follow-ups pushed).
  void Done();
  void Stop();
  // Waits up to `wait` for the run to be over; true when it is.
  bool WaitOver(std::chrono::milliseconds wait);
  std::size_t pending() const;
  Clock::time_point start() const { return start_; }
  Clock::time_point end() const { return end_; }

 private:
  bool OverLocked(Clock::time_point now) const;

  const Clock::time_point start_;
  const Clock::time_point end_;
  mutable std::mutex mutex_;
  // One taker at a time (the leader) sleeps until the earliest action is
  // due; the others wait to be woken, so that an action due wakes one
  // thread rather than all of them.
  std::condition_variable leader_;
  std::condition_variable followers_;
  std::condition_variable over_;  // the run may be over
  bool leading_ = false;
  std::vector<Due> heap_;
  std::size_t inFlight_ = 0;
  bool stopped_ = false;
};

}  // namespace agentsim
