#include "host_Connections.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <random>

namespace {

constexpr int64_t kRefusedMs = 1000;

// The address alone (no port): the key of the per-address count.
std::string AddressKey(const sockaddr* address) {
  if (address == nullptr) return std::string();
  if (address->sa_family == AF_INET) {
    const auto* in = reinterpret_cast<const sockaddr_in*>(address);
    return std::string(reinterpret_cast<const char*>(&in->sin_addr), sizeof in->sin_addr);
  }
  if (address->sa_family == AF_INET6) {
    const auto* in6 = reinterpret_cast<const sockaddr_in6*>(address);
    return std::string(reinterpret_cast<const char*>(&in6->sin6_addr), sizeof in6->sin6_addr);
  }
  return std::string();
}

}  // namespace

int64_t ConnectionTable::NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

TrackedConnection* ConnectionTable::Open(int fd, const sockaddr* address, int64_t nowMs) {
  auto* connection = new TrackedConnection();
  connection->fd_ = fd;
  connection->address_ = AddressKey(address);
  connection->StartClock(nowMs);
  std::lock_guard lock(mutex_);
  uint32_t& fromAddress = perAddress_[connection->address_];
  if (admitted_ >= limits_.maxConnections || fromAddress >= limits_.maxPerAddress) {
    connection->refused_ = true;
    refused_.fetch_add(1);
    if (fromAddress == 0) perAddress_.erase(connection->address_);
  } else {
    ++admitted_;
    ++fromAddress;
  }
  open_.insert(connection);
  return connection;
}

void ConnectionTable::Close(TrackedConnection* connection) {
  if (connection == nullptr) return;
  {
    std::lock_guard lock(mutex_);
    open_.erase(connection);
    if (!connection->refused_) {
      --admitted_;
      auto it = perAddress_.find(connection->address_);
      if (it != perAddress_.end() && --it->second == 0) perAddress_.erase(it);
    }
  }
  delete connection;
}

int ConnectionTable::Sweep(int64_t nowMs) {
  int cut = 0;
  std::lock_guard lock(mutex_);
  for (TrackedConnection* connection : open_) {
    const int64_t since = connection->since_.load(std::memory_order_acquire);
    if (since == 0 || connection->cut_) continue;
    const uint64_t body = connection->bodyBytes_.load(std::memory_order_relaxed);
    // A refused connection is only there to be told 503: it gets a second,
    // so that refused connections cannot pile up to the library's ceiling.
    const int64_t allowance = connection->refused_ ? kRefusedMs
                                                   : int64_t{limits_.deadlineSeconds} * 1000 +
                                                         static_cast<int64_t>(body * 1000 / limits_.minBodyRate);
    if (nowMs - since <= allowance) continue;
    // The socket stays open (libmicrohttpd closes it, after telling us in
    // Close, under this lock), so the descriptor cannot be someone else's.
    ::shutdown(connection->fd_, SHUT_RDWR);
    connection->cut_ = true;
    ++cut;
  }
  cut_.fetch_add(static_cast<uint64_t>(cut));
  return cut;
}

void ConnectionTable::StartSweeper(uint32_t periodMs) {
  sweeper_ = std::thread([this, periodMs] {
    std::unique_lock lock(sweeperMutex_);
    while (!stopping_) {
      sweeperWake_.wait_for(lock, std::chrono::milliseconds(periodMs));
      if (!stopping_) Sweep(NowMs());
    }
  });
}

void ConnectionTable::StopSweeper() {
  {
    std::lock_guard lock(sweeperMutex_);
    stopping_ = true;
  }
  sweeperWake_.notify_all();
  if (sweeper_.joinable()) sweeper_.join();
}

int RetryAfterSeconds() {
  thread_local std::minstd_rand random(std::random_device{}());
  return 5 + static_cast<int>(random() % 11);
}
