// The threads that call the extension synchronously in adapter mode, as an
// Apache child's worker threads do: a fixed number of them and a bounded
// queue, so that a flood of requests is refused (503) rather than piled up.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

class Workers {
 public:
  Workers(std::size_t threads, std::size_t queueLimit);
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  // False when the queue is full: the job is not taken. A job still queued
  // at Stop is not run: `cancel` is called instead.
  bool Submit(std::function<void()> job, std::function<void()> cancel);
  // Takes no more jobs, cancels the queued ones and waits for the running
  // ones. Idempotent.
  void Stop();

 private:
  struct Job {
    std::function<void()> run;
    std::function<void()> cancel;
  };
  void Run();

  const std::size_t queueLimit_;
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<Job> queue_;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};
