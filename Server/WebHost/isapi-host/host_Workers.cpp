#include "host_Workers.h"

Workers::Workers(std::size_t threads, std::size_t queueLimit) : queueLimit_(queueLimit) {
  threads_.reserve(threads);
  for (std::size_t i = 0; i < threads; ++i) threads_.emplace_back([this] { Run(); });
}

Workers::~Workers() { Stop(); }

bool Workers::Submit(std::function<void()> job, std::function<void()> cancel) {
  {
    std::lock_guard lock(mutex_);
    if (stopping_ || queue_.size() >= queueLimit_) return false;
    queue_.push_back({std::move(job), std::move(cancel)});
  }
  ready_.notify_one();
  return true;
}

// Queued jobs are cancelled, not run: the extension is about to be told to
// terminate, and a call into it after that is not allowed.
void Workers::Stop() {
  std::deque<Job> left;
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    left.swap(queue_);
  }
  ready_.notify_all();
  for (Job& job : left) job.cancel();
  for (std::thread& thread : threads_) {
    if (thread.joinable()) thread.join();
  }
}

void Workers::Run() {
  for (;;) {
    Job job;
    {
      std::unique_lock lock(mutex_);
      ready_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
      if (stopping_) return;
      job = std::move(queue_.front());
      queue_.pop_front();
    }
    job.run();
  }
}
