#include "host_Metrics.h"

#include <microhttpd.h>
#include <netinet/in.h>
#include <arpa/inet.h>

#include <chrono>
#include <cstring>
#include <system_error>
#include <vector>

#include "host_Server.h"

namespace {

using GetMetrics = BOOL(WINAPI*)(char* buffer, DWORD* size);

constexpr char kTextFormat[] = "text/plain; version=0.0.4; charset=utf-8";

MHD_Result Reply(MHD_Connection* connection, unsigned status, const std::string& body, const char* type) {
  MHD_Response* response =
      MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type);
  MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
  const MHD_Result queued = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  return queued;
}

MHD_Result Serve(void* context, MHD_Connection* connection, const char* url, const char* method, const char*,
                 const char*, size_t* uploadSize, void** state) {
  auto* server = static_cast<MetricsServer*>(context);
  // A request body is not wanted; let the first call pass so that one
  // that comes is drained by the library rather than answered mid-way.
  if (*state == nullptr) {
    *state = server;
    return MHD_YES;
  }
  *uploadSize = 0;
  if (std::strcmp(method, "GET") != 0 && std::strcmp(method, "HEAD") != 0) {
    return Reply(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "GET only\n", "text/plain");
  }
  if (std::strcmp(url, "/metrics") == 0) return Reply(connection, MHD_HTTP_OK, server->Metrics(), kTextFormat);
  if (std::strcmp(url, "/healthz") == 0) {
    std::string reason;
    const bool healthy = server->Health(&reason);
    return Reply(connection, healthy ? MHD_HTTP_OK : MHD_HTTP_SERVICE_UNAVAILABLE, reason + "\n", "text/plain");
  }
  return Reply(connection, MHD_HTTP_NOT_FOUND, "/metrics or /healthz\n", "text/plain");
}

void Family(std::string* out, const char* name, const char* type, const char* help, uint64_t value) {
  out->append("# HELP ").append(name).append(" ").append(help).append("\n# TYPE ").append(name).append(" ");
  out->append(type).append("\n").append(name).append(" ").append(std::to_string(value)).append("\n");
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

MetricsServer::MetricsServer(HostServer& host, isapi::Module& module)
    : host_(host), module_(module), probe_(reinterpret_cast<HealthProbe::Check>(module.Symbol("VgcrCheckHealth"))) {}

MetricsServer::~MetricsServer() { Stop(); }

bool MetricsServer::Start(const std::string& address, uint16_t port, std::string* message) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &addr.sin_addr) != 1) {
    *message = "cannot serve metrics on " + address + ": not an IPv4 address";
    return false;
  }
  // A thread per connection, and few of them: a health check may wait two
  // seconds, and must not hold up a scrape.
  daemon_ = MHD_start_daemon(MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_ERROR_LOG, port,
                             nullptr, nullptr, &Serve, this, MHD_OPTION_SOCK_ADDR, &addr,
                             MHD_OPTION_CONNECTION_LIMIT, 16u, MHD_OPTION_CONNECTION_TIMEOUT, 10u, MHD_OPTION_END);
  if (daemon_ == nullptr) {
    *message = "cannot serve metrics on " + address + ":" + std::to_string(port);
    return false;
  }
  return true;
}

void MetricsServer::Stop() {
  if (daemon_ != nullptr) MHD_stop_daemon(daemon_);
  daemon_ = nullptr;
}

uint16_t MetricsServer::port() const {
  const MHD_DaemonInfo* info = daemon_ ? MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT) : nullptr;
  return info ? info->port : 0;
}

std::string MetricsServer::Metrics() {
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
  Family(&text, "isapi_host_connections_open", "gauge", "Client connections held now.",
         host_.connections().openCount());
  Family(&text, "isapi_host_connections_refused_total", "counter",
         "Connections answered 503 and closed, over the total or the per-address limit.",
         host_.connections().refusedCount());
  Family(&text, "isapi_host_connections_cut_total", "counter",
         "Connections shut down because their request was not whole by its deadline.",
         host_.connections().cutCount());
  Family(&text, "isapi_host_requests_in_flight", "gauge", "Requests in the extension's hands now.",
         static_cast<uint64_t>(host_.InFlight() > 0 ? host_.InFlight() : 0));
  return text;
}

bool MetricsServer::Health(std::string* reason) { return probe_.Ask(kHealthBoundMs, reason); }
