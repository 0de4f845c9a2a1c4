#include "host_Metrics.h"

#include <chrono>
#include <system_error>
#include <vector>

#include "host_Server.h"

namespace {

using GetMetrics = BOOL(WINAPI*)(char* buffer, DWORD* size);

void Gauge(metrics::Writer& w, const char* name, const char* type, const char* help, uint64_t value) {
  w.Family(name, type, help);
  w.Sample(name, "", value);
}

}  // namespace

HealthProbe::~HealthProbe() {
  if (thread_.joinable()) thread_.join();
}

void HealthProbe::Run() {
  char why[256] = {};
  const bool healthy = check_(why, sizeof why) != FALSE;
  std::lock_guard lock(mutex_);
  healthy_ = healthy;
  reason_ = why;
  running_ = false;
  ++finished_;
  done_.notify_all();
}

bool HealthProbe::Ask(uint32_t boundMs, std::string* reason) {
  if (check_ == nullptr) {
    *reason = "the extension is loaded; it offers no service check";
    return true;
  }
  std::unique_lock lock(mutex_);
  if (!running_) {
    // The last probe has left its locked part, so this join is short.
    if (thread_.joinable()) thread_.join();
    try {
      thread_ = std::thread([this] { Run(); });
    } catch (const std::system_error&) {
      *reason = "no thread for the service check";
      return false;
    }
    running_ = true;
  }
  const uint64_t awaited = finished_ + 1;
  if (!done_.wait_for(lock, std::chrono::milliseconds(boundMs), [&] { return finished_ >= awaited; })) {
    *reason = "the command-handler service did not answer within " + std::to_string(boundMs) + " ms";
    return false;
  }
  *reason = reason_;
  return healthy_;
}

HostMetrics::HostMetrics(HostServer& host, isapi::Module& module)
    : host_(host),
      module_(module),
      probe_(reinterpret_cast<HealthProbe::Check>(module.Symbol("VgcrCheckHealth"))),
      endpoint_([this] { return Render(); }, [this](std::string* reason) { return probe_.Ask(kHealthBoundMs, reason); }) {}

std::string HostMetrics::Render() {
  std::string text;
  if (auto get = reinterpret_cast<GetMetrics>(module_.Symbol("VgcrGetMetrics"))) {
    std::vector<char> buffer(64 * 1024);
    for (int attempt = 0; attempt < 3; ++attempt) {
      DWORD size = static_cast<DWORD>(buffer.size());
      if (get(buffer.data(), &size)) {
        text.assign(buffer.data(), size);
        break;
      }
      buffer.resize(size + 4096);  // the counters grew meanwhile: ask again with room
    }
  }
  metrics::Writer w(&text);
  ConnectionTable& connections = host_.connections();
  Gauge(w, "isapi_host_connections_open", "gauge", "Client connections held now.", connections.openCount());
  Gauge(w, "isapi_host_connections_refused_total", "counter",
        "Connections answered 503 and closed, over the total or the per-address limit.", connections.refusedCount());
  Gauge(w, "isapi_host_connections_cut_total", "counter",
        "Connections shut down because their request was not whole by its deadline.", connections.cutCount());
  Gauge(w, "isapi_host_requests_in_flight", "gauge", "Requests in the extension's hands now.",
        static_cast<uint64_t>(host_.InFlight() > 0 ? host_.InFlight() : 0));
  return text;
}
