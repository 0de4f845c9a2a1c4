#include "host_Workers.h"

Workers::Workers(std::size_t threads, std::size_t queueLimit) : queueLimit_(queueLimit) {
  threads_.reserve(threads);
  for (std::size_t i = 0; i < threads; ++i) threads_.emplace_back([this] { Run(); });
}

Workers::~Workers() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  ready_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

bool Workers::Submit(std::function<void()> job) {
  {
    std::lock_guard lock(mutex_);
    if (stopping_ || queue_.size() >= queueLimit_) return false;
    queue_.push_back(std::move(job));
  }
  ready_.notify_one();
  return true;
}

// Jobs still queued at the stop are run: each ends a request that a
// connection is waiting for.
void Workers::Run() {
  for (;;) {
    std::function<void()> job;
    {
      std::unique_lock lock(mutex_);
      ready_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
      if (queue_.empty()) return;
      job = std::move(queue_.front());
      queue_.pop_front();
    }
    job();
  }
}
