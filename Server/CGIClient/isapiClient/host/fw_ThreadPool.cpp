#include "fw_ThreadPool.h"

#include <cstdlib>
#include <string>
#include <system_error>

#include "channel/pipe_Util.h"

unsigned CThreadPool::DefaultWorkerCount() {
  if (const char* configured = std::getenv("VGCR_WORKERS")) {
    int n = std::atoi(configured);
    if (n > 0 && n <= 1024) return static_cast<unsigned>(n);
  }
  unsigned processors = std::thread::hardware_concurrency();
  return (processors ? processors : 1) * kWorkersPerProcessor;
}

std::size_t CThreadPool::DefaultQueueLimit(unsigned workers) {
  if (const char* configured = std::getenv("VGCR_QUEUE_LIMIT")) {
    int n = std::atoi(configured);
    if (n > 0 && n <= 1000000) return static_cast<std::size_t>(n);
  }
  return std::size_t{workers} * kQueuedPerWorker;
}

bool CThreadPool::Initialize(unsigned workers, Work work, std::size_t maxQueued) {
  if (workers == 0 || maxQueued == 0 || !threads_.empty()) return false;
  work_ = std::move(work);
  maxQueued_ = maxQueued;
  stopping_ = false;
  try {
    for (unsigned i = 0; i < workers; ++i) {
      threads_.emplace_back([this] { Run(); });
      started_.fetch_add(1, std::memory_order_relaxed);
    }
  } catch (const std::system_error&) {
    Shutdown();
    return false;
  }
  return true;
}

CThreadPool::Queued CThreadPool::QueueRequest(EXTENSION_CONTROL_BLOCK* ecb) {
  {
    std::lock_guard lock(mutex_);
    if (stopping_ || threads_.empty()) return Queued::kStopped;
    if (queue_.size() >= maxQueued_) return Queued::kFull;
    queue_.push_back(ecb);
  }
  wake_.notify_one();
  return Queued::kYes;
}

void CThreadPool::Run() {
  // A worker makes one round trip after another: it keeps their local event
  // and reply timer rather than making and closing them for each.
  ThreadRoundTripObjects roundTrips;
  for (;;) {
    EXTENSION_CONTROL_BLOCK* ecb = nullptr;
    {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
      if (queue_.empty()) return;
      ecb = queue_.front();
      queue_.pop_front();
    }
    busy_.fetch_add(1, std::memory_order_relaxed);
    work_(ecb);
    busy_.fetch_sub(1, std::memory_order_relaxed);
  }
}

std::size_t CThreadPool::QueuedCount() {
  std::lock_guard lock(mutex_);
  return queue_.size();
}

void CThreadPool::Shutdown() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  for (auto& t : threads_) {
    if (t.joinable()) t.join();
  }
  threads_.clear();
  started_ = 0;
}
