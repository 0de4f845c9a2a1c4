// A fixed pool of worker threads and the queue of requests they take from.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "isapi/isapi.h"

class CThreadPool {
 public:
  using Work = std::function<void(EXTENSION_CONTROL_BLOCK*)>;

  enum class Queued { kYes, kStopped, kFull };

  // Starts `workers` threads that run `work` on each queued request; at
  // most `maxQueued` requests wait for a worker.
  bool Initialize(unsigned workers, Work work, std::size_t maxQueued);
  Queued QueueRequest(EXTENSION_CONTROL_BLOCK* ecb);
  // Stops taking requests, lets the workers finish what is queued, joins them.
  void Shutdown();
  unsigned WorkerCount() const { return started_.load(std::memory_order_relaxed); }
  // For the metrics: workers on a request now, requests waiting, the bound.
  unsigned BusyCount() const { return busy_.load(std::memory_order_relaxed); }
  std::size_t QueuedCount();
  std::size_t QueueLimit() const { return maxQueued_; }

  // Workers per processor: they spend most of a request waiting on pipes to
  // the command-handler service, so several per processor keep the
  // processors busy (docs/performance.md has the measurement).
  static constexpr unsigned kWorkersPerProcessor = 16;
  static unsigned DefaultWorkerCount();
  // Requests that may wait for a worker, per worker: 1,024 with the default
  // 32 workers of two processors. Saturated, the pool answers about 4,000
  // heartbeats a second, so a full queue is a quarter of a second of waiting,
  // far inside any client's time-out, while a smaller bound turned away
  // clients that would have been served in time (docs/performance.md).
  static constexpr unsigned kQueuedPerWorker = 32;
  // $VGCR_QUEUE_LIMIT, else kQueuedPerWorker per worker.
  static std::size_t DefaultQueueLimit(unsigned workers);

 private:
  void Run();

  Work work_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<EXTENSION_CONTROL_BLOCK*> queue_;
  std::size_t maxQueued_ = 0;
  bool stopping_ = false;
  std::atomic<unsigned> busy_{0};
  std::atomic<unsigned> started_{0};  // threads_.size(), readable while it changes
  std::vector<std::thread> threads_;
};
