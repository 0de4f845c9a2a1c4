// isapi-host's metrics and health listener (--metrics ADDR:PORT), apart
// from the clients' port so that it can stay on a private address:
// - GET /metrics: the extension's counters (its VgcrGetMetrics) followed by
//   the host's own, as Prometheus text.
// - GET /healthz: 200 when the extension is loaded and a round trip to the
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

struct MHD_Daemon;
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

class MetricsServer {
 public:
  static constexpr uint32_t kHealthBoundMs = 2000;

  MetricsServer(HostServer& host, isapi::Module& module);
  ~MetricsServer();
  bool Start(const std::string& address, uint16_t port, std::string* message);
  void Stop();
  uint16_t port() const;

  // For the daemon's callback.
  std::string Metrics();
  bool Health(std::string* reason);

 private:
  HostServer& host_;
  isapi::Module& module_;
  HealthProbe probe_;
  MHD_Daemon* daemon_ = nullptr;
};
