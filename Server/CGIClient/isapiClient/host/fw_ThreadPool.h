// A fixed pool of worker threads and the queue of requests they take from.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "isapi/isapi.h"

class CThreadPool {
 public:
  using Work = std::function<void(EXTENSION_CONTROL_BLOCK*)>;

  // Starts `workers` threads that run `work` on each queued request.
  bool Initialize(unsigned workers, Work work);
  bool QueueRequest(EXTENSION_CONTROL_BLOCK* ecb);
  // Stops taking requests, lets the workers finish what is queued, joins them.
  void Shutdown();
  unsigned WorkerCount() const { return static_cast<unsigned>(threads_.size()); }

  // Workers per processor: they spend most of a request waiting on pipes to
  // the command-handler service, so several per processor keep the
  // processors busy (docs/performance.md has the measurement).
  static constexpr unsigned kWorkersPerProcessor = 16;
  static unsigned DefaultWorkerCount();

 private:
  void Run();

  Work work_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<EXTENSION_CONTROL_BLOCK*> queue_;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};
