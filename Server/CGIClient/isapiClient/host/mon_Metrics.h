// The extension's counters: what an operator watches to see it serve.
// Workers update them without locks; Render writes them out as Prometheus
// text for isapi-host's metrics endpoint, for the metrics file, and for
// anyone who calls the exported VgcrGetMetrics.
//
// Labels stay few and fixed: a requestid label has one value per routed
// requestid and "other"; a result label is "ok", a code reply ("-1" to
// "-50") or an HTTP error ("http_500", "http_503"); a pipe is named by its
// role, an error by its Windows error code or "other". Nothing is labelled
// by client.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

struct GuardCaches;

namespace mon {

// Results that are not a handler's code: the dispatcher answered an HTTP
// error status instead of a reply.
inline constexpr int32_t kResultHttp500 = 500;
inline constexpr int32_t kResultHttp503 = 503;

// One request done: its requestid (0 when it was never read), what the
// client got (kResultHandled, a code, or an HTTP status above) and the time
// a worker spent on it.
void CountRequest(int32_t requestId, int32_t result, std::chrono::nanoseconds took);
// A service pipe that could not be opened or written, or a round trip whose
// reply did not come: the service pipe's name and the error.
void CountPipeFailure(const char16_t* pipeName, uint32_t error);

// The `pipe` label of a service pipe: "command_handler", "command_handler2",
// "server_notify", "threat_log", "log_server", or "other".
const char* PipeLabel(const char16_t* pipeName);

// What the pool reports at the moment of rendering.
struct PoolView {
  unsigned workers = 0;
  unsigned busy = 0;
  std::size_t queued = 0;
  std::size_t queueLimit = 0;
  uint64_t refusedForLoad = 0;
};

std::string Render(const PoolView& pool, const GuardCaches& guards);

}  // namespace mon
