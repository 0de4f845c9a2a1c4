#include "metrics/endpoint.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>

#include <cstdlib>
#include <cstring>

namespace metrics {
namespace {

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
  const auto* endpoint = static_cast<const Endpoint*>(context);
  // The first call only announces the request: any body it has is then
  // drained by the library rather than answered mid-way.
  if (*state == nullptr) {
    *state = context;
    return MHD_YES;
  }
  *uploadSize = 0;
  if (std::strcmp(method, "GET") != 0 && std::strcmp(method, "HEAD") != 0) {
    return Reply(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "GET only\n", "text/plain");
  }
  if (std::strcmp(url, "/metrics") == 0) return Reply(connection, MHD_HTTP_OK, endpoint->metrics()(), kTextFormat);
  if (std::strcmp(url, "/healthz") == 0) {
    std::string reason;
    const bool healthy = endpoint->health()(&reason);
    return Reply(connection, healthy ? MHD_HTTP_OK : MHD_HTTP_SERVICE_UNAVAILABLE, reason + "\n", "text/plain");
  }
  return Reply(connection, MHD_HTTP_NOT_FOUND, "/metrics or /healthz\n", "text/plain");
}

}  // namespace

bool Endpoint::Start(const std::string& address, uint16_t port, std::string* message) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &addr.sin_addr) != 1) {
    *message = "cannot serve metrics on " + address + ": not an IPv4 address";
    return false;
  }
  daemon_ = MHD_start_daemon(MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_ERROR_LOG,
                             port, nullptr, nullptr, &Serve, this, MHD_OPTION_SOCK_ADDR, &addr,
                             MHD_OPTION_CONNECTION_LIMIT, 16u, MHD_OPTION_CONNECTION_TIMEOUT, 10u, MHD_OPTION_END);
  if (daemon_ == nullptr) {
    *message = "cannot serve metrics on " + address + ":" + std::to_string(port);
    return false;
  }
  return true;
}

void Endpoint::Stop() {
  if (daemon_ != nullptr) MHD_stop_daemon(daemon_);
  daemon_ = nullptr;
}

uint16_t Endpoint::port() const {
  const MHD_DaemonInfo* info = daemon_ ? MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT) : nullptr;
  return info ? info->port : 0;
}

bool ParseAddress(const std::string& text, std::string* address, uint16_t* port) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) return false;
  char* end = nullptr;
  const unsigned long n = std::strtoul(text.c_str() + colon + 1, &end, 10);
  if (*end != '\0' || n > 65535 || text[colon + 1] < '0' || text[colon + 1] > '9') return false;
  *address = text.substr(0, colon);
  *port = static_cast<uint16_t>(n);
  return true;
}

}  // namespace metrics
