#include "fw_ThreadPool.h"

#include <cstdlib>
#include <string>
#include <system_error>

unsigned CThreadPool::DefaultWorkerCount() {
  if (const char* configured = std::getenv("VGCR_WORKERS")) {
    int n = std::atoi(configured);
    if (n > 0 && n <= 1024) return static_cast<unsigned>(n);
  }
  unsigned processors = std::thread::hardware_concurrency();
  return (processors ? processors : 1) * kWorkersPerProcessor;
}

bool CThreadPool::Initialize(unsigned workers, Work work) {
  if (workers == 0 || !threads_.empty()) return false;
  work_ = std::move(work);
  stopping_ = false;
  try {
    for (unsigned i = 0; i < workers; ++i) threads_.emplace_back([this] { Run(); });
  } catch (const std::system_error&) {
    Shutdown();
    return false;
  }
  return true;
}

bool CThreadPool::QueueRequest(EXTENSION_CONTROL_BLOCK* ecb) {
  {
    std::lock_guard lock(mutex_);
    if (stopping_ || threads_.empty()) return false;
    queue_.push_back(ecb);
  }
  wake_.notify_one();
  return true;
}

void CThreadPool::Run() {
  for (;;) {
    EXTENSION_CONTROL_BLOCK* ecb = nullptr;
    {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
      if (queue_.empty()) return;
      ecb = queue_.front();
      queue_.pop_front();
    }
    work_(ecb);
  }
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
}
