// A small HTTP listener of its own for an operator's tools (POSIX, on
// libmicrohttpd): GET /metrics answers the Prometheus text `metrics`
// writes, GET /healthz 200 or 503 as `health` says, with its one-line
// reason. Kept off the clients' port so that it can stay on a private
// address. A thread per connection and few connections: a health check may
// wait, and must not hold up a scrape.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

struct MHD_Daemon;

namespace metrics {

class Endpoint {
 public:
  using Render = std::function<std::string()>;
  using Health = std::function<bool(std::string* reason)>;

  Endpoint(Render metrics, Health health) : metrics_(std::move(metrics)), health_(std::move(health)) {}
  ~Endpoint() { Stop(); }
  Endpoint(const Endpoint&) = delete;
  Endpoint& operator=(const Endpoint&) = delete;

  // address: an IPv4 address; port 0 takes a free one.
  bool Start(const std::string& address, uint16_t port, std::string* message);
  void Stop();
  uint16_t port() const;

  // For the daemon's callback.
  const Render& metrics() const { return metrics_; }
  const Health& health() const { return health_; }

 private:
  Render metrics_;
  Health health_;
  MHD_Daemon* daemon_ = nullptr;
};

// "ADDR:PORT" split; false when it is not of that form.
bool ParseAddress(const std::string& text, std::string* address, uint16_t* port);

}  // namespace metrics
