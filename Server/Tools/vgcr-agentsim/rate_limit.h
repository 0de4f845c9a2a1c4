// The cap on requests per second overall (--rate): a token bucket shared by
// the connection threads, holding at most a tenth of a second's tokens so
// that a quiet spell does not turn into a burst.
#pragma once

#include <chrono>
#include <mutex>

namespace agentsim {

class RateLimit {
 public:
  using Clock = std::chrono::steady_clock;
  // rate 0: no cap.
  explicit RateLimit(double perSecond);
  // Takes a token, waiting for it; false when it would come only after
  // `until` (the run is over by then), and no token is taken.
  bool Acquire(Clock::time_point until);

 private:
  const double rate_;
  const double capacity_;
  std::mutex mutex_;
  double tokens_;
  Clock::time_point refilled_;
};

}  // namespace agentsim
