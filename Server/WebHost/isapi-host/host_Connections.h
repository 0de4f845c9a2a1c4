// The connections isapi-host holds: who may have one (a total and a
// per-address limit; a connection over either is answered 503 with a
// Retry-After and closed), and the clock that bounds how long a client may
// take to send a request. The clock runs while the host waits for the
// client's bytes and stops while the extension works; trickling bytes does
// not reset it: a request must be whole within `deadline` seconds, plus one
// second for every `minBodyRate` bytes of body received (a large body on a
// slow but honest link gets the time it needs). A connection past its
// deadline is shut down, which libmicrohttpd sees as the client leaving.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>

struct ConnectionLimits {
  uint32_t maxConnections = 10000;
  uint32_t maxPerAddress = 512;
  uint32_t deadlineSeconds = 20;
  uint32_t minBodyRate = 8192;  // bytes per second
};

// One connection's entry. The table owns it from Open to Close.
class TrackedConnection {
 public:
  bool refused() const { return refused_; }
  // The host waits for the client from now on (a new request, or more of
  // this one's body after the extension asked for it).
  void StartClock(int64_t nowMs) {
    bodyBytes_.store(0, std::memory_order_relaxed);
    since_.store(nowMs, std::memory_order_release);
  }
  // The extension has the request: the client is not keeping anyone waiting.
  void StopClock() { since_.store(0, std::memory_order_release); }
  void CountBody(uint64_t bytes) { bodyBytes_.fetch_add(bytes, std::memory_order_relaxed); }

 private:
  friend class ConnectionTable;
  int fd_ = -1;
  std::string address_;
  bool refused_ = false;
  bool cut_ = false;  // under the table's lock
  std::atomic<int64_t> since_{0};
  std::atomic<uint64_t> bodyBytes_{0};
};

class ConnectionTable {
 public:
  explicit ConnectionTable(const ConnectionLimits& limits) : limits_(limits) {}
  ~ConnectionTable() { StopSweeper(); }
  ConnectionTable(const ConnectionTable&) = delete;
  ConnectionTable& operator=(const ConnectionTable&) = delete;

  // A new connection (the socket and the client's address); never null.
  TrackedConnection* Open(int fd, const sockaddr* address, int64_t nowMs);
  // libmicrohttpd is about to close the socket.
  void Close(TrackedConnection* connection);
  // Shuts down every connection past its deadline; returns how many.
  int Sweep(int64_t nowMs);
  // Sweeps every `periodMs` on a thread of its own, until StopSweeper.
  void StartSweeper(uint32_t periodMs);
  void StopSweeper();

  uint64_t refusedCount() const { return refused_.load(); }
  uint32_t openCount() {
    std::lock_guard lock(mutex_);
    return admitted_;
  }
  uint64_t cutCount() const { return cut_.load(); }

  static int64_t NowMs();

 private:
  const ConnectionLimits limits_;
  std::mutex mutex_;
  std::unordered_set<TrackedConnection*> open_;
  std::unordered_map<std::string, uint32_t> perAddress_;
  uint32_t admitted_ = 0;
  std::atomic<uint64_t> refused_{0};
  std::atomic<uint64_t> cut_{0};
  std::thread sweeper_;
  std::mutex sweeperMutex_;
  std::condition_variable sweeperWake_;
  bool stopping_ = false;
};

// Seconds for a Retry-After header: 5 to 15, spread so that refused clients
// do not all come back at the same moment.
int RetryAfterSeconds();
