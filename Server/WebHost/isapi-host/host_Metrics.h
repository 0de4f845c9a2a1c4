// isapi-host's metrics and health (--metrics ADDR:PORT):
// - /metrics: the extension's counters (its VgcrGetMetrics) followed by the
//   host's own connections;
// - /healthz: 200 when the extension is loaded and a round trip to the
//   command-handler service (its VgcrCheckHealth) succeeds within 2 s;
//   otherwise 503. The body is one line that says why.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "isapi/exchange.h"
#include "isapi/isapi.h"
#include "metrics/endpoint.h"
#include "metrics/text.h"

class HostServer;

// One service check at a time: requests that come while one runs wait for
// its answer instead of starting their own, so a scraper cannot pile round
// trips onto a slow service.
class HealthProbe {
 public:
  // The extension's VgcrCheckHealth; null when it has none.
  using Check = BOOL(WINAPI*)(char* reason, DWORD size);
  explicit HealthProbe(Check check) : check_(check) {}
  ~HealthProbe();
  // Whether the service answered within boundMs, and why not.
  bool Ask(uint32_t boundMs, std::string* reason);

 private:
  void Run();

  Check check_;
  std::mutex mutex_;
  std::condition_variable done_;
  bool running_ = false;
  uint64_t finished_ = 0;  // probes completed, to tell a fresh answer
  bool healthy_ = false;
  std::string reason_;
  std::thread thread_;
};

class HostMetrics {
 public:
  static constexpr uint32_t kHealthBoundMs = 2000;

  HostMetrics(HostServer& host, isapi::Module& module);
  bool Start(const std::string& address, uint16_t port, std::string* message) {
    return endpoint_.Start(address, port, message);
  }
  void Stop() { endpoint_.Stop(); }
  uint16_t port() const { return endpoint_.port(); }

 private:
  std::string Render();

  HostServer& host_;
  isapi::Module& module_;
  HealthProbe probe_;
  metrics::Endpoint endpoint_;
};
