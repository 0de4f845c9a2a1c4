#include "rate_limit.h"

#include <algorithm>
#include <thread>

namespace agentsim {

RateLimit::RateLimit(double perSecond)
    : rate_(perSecond), capacity_(std::max(1.0, perSecond / 10)), tokens_(capacity_), refilled_(Clock::now()) {}

bool RateLimit::Acquire(Clock::time_point until) {
  if (rate_ <= 0) return true;
  Clock::time_point at;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const Clock::time_point now = Clock::now();
    tokens_ = std::min(capacity_, tokens_ + std::chrono::duration<double>(now - refilled_).count() * rate_);
    refilled_ = now;
    // Tokens may go below zero: each waiter reserves its own, and waits for
    // the refill that pays for it.
    const double wait = tokens_ >= 1 ? 0 : (1 - tokens_) / rate_;
    at = now + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(wait));
    if (at > until) return false;
    tokens_ -= 1;
  }
  std::this_thread::sleep_until(at);
  return true;
}

}  // namespace agentsim
