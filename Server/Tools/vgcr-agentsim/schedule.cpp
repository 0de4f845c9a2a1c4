#include "schedule.h"

#include <algorithm>

namespace agentsim {

namespace {

// std::push_heap keeps the largest first: "later" is the smaller.
bool Later(const Due& a, const Due& b) { return a.atUs > b.atUs; }

}  // namespace

int64_t Schedule::NowUs() const {
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start_).count();
}

void Schedule::Push(const Due& due) {
  std::lock_guard<std::mutex> lock(mutex_);
  const bool first = heap_.empty() || due.atUs < heap_.front().atUs;
  heap_.push_back(due);
  std::push_heap(heap_.begin(), heap_.end(), Later);
  if (!leading_) {
    followers_.notify_one();
  } else if (first) {
    leader_.notify_one();  // it sleeps until a later time than this one's
  }
}

void Schedule::PushMany(const std::vector<Due>& many) {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const Due& due : many) {
    heap_.push_back(due);
    std::push_heap(heap_.begin(), heap_.end(), Later);
  }
  leader_.notify_one();
  followers_.notify_all();
}

bool Schedule::Take(Due* due) {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    const Clock::time_point now = Clock::now();
    if (OverLocked(now)) return false;
    if (!heap_.empty() && start_ + std::chrono::microseconds(heap_.front().atUs) <= now) break;
    if (leading_) {
      followers_.wait_until(lock, end_);
      continue;
    }
    leading_ = true;
    const Clock::time_point at =
        heap_.empty() ? end_ : std::min(end_, start_ + std::chrono::microseconds(heap_.front().atUs));
    leader_.wait_until(lock, at);
    leading_ = false;
  }
  std::pop_heap(heap_.begin(), heap_.end(), Later);
  *due = heap_.back();
  heap_.pop_back();
  ++inFlight_;
  // Someone must watch for the next one.
  if (!leading_ && !heap_.empty()) followers_.notify_one();
  return true;
}

void Schedule::Done() {
  std::lock_guard<std::mutex> lock(mutex_);
  --inFlight_;
  if (inFlight_ == 0 && heap_.empty()) {
    leader_.notify_all();
    followers_.notify_all();
    over_.notify_all();
  }
}

void Schedule::Stop() {
  std::lock_guard<std::mutex> lock(mutex_);
  stopped_ = true;
  leader_.notify_all();
  followers_.notify_all();
  over_.notify_all();
}

bool Schedule::WaitOver(std::chrono::milliseconds wait) {
  std::unique_lock<std::mutex> lock(mutex_);
  const Clock::time_point until = std::min(Clock::now() + wait, end_);
  over_.wait_until(lock, until, [&] { return OverLocked(Clock::now()); });
  return OverLocked(Clock::now());
}

std::size_t Schedule::pending() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return heap_.size() + inFlight_;
}

bool Schedule::OverLocked(Clock::time_point now) const {
  return stopped_ || now >= end_ || (heap_.empty() && inFlight_ == 0);
}

}  // namespace agentsim
