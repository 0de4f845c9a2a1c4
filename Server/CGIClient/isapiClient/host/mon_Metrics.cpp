#include "mon_Metrics.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "channel/channel_Settings.h"
#include "grd_Guards.h"
#include "isapi_Result.h"
#include "isapi_Routes.h"
#include "metrics/text.h"
#include "platform/errors.h"
#include "support/logcl_Command.h"

namespace mon {
namespace {

using Counter = std::atomic<uint64_t>;

// requestid slots: 0 for any other, then the routes in table order, then
// the upload.
constexpr std::size_t kRequestSlots = kRouteCount + 2;
// result slots: "ok", "-1" to "-50", "http_500", "http_503", "other".
constexpr int kLowestCode = -50;
constexpr std::size_t kOkSlot = 0;
constexpr std::size_t kHttp500Slot = 1 - kLowestCode;
constexpr std::size_t kHttp503Slot = kHttp500Slot + 1;
constexpr std::size_t kOtherResultSlot = kHttp503Slot + 1;
constexpr std::size_t kResultSlots = kOtherResultSlot + 1;

struct Pipe {
  const char16_t* name;
  const char* label;
};
constexpr Pipe kPipes[] = {{kCommandHandlerPipe, "command_handler"},
                           {kCommandHandler2Pipe, "command_handler2"},
                           {kServerNotifyPipe, "server_notify"},
                           {kThreatLogPipe, "threat_log"},
                           {kLogServerPipeName, "log_server"}};
constexpr std::size_t kPipeSlots = std::size(kPipes) + 1;  // the last: "other"

// The errors a pipe fails with in practice; any other counts as "other".
constexpr uint32_t kPipeErrors[] = {plat::kErrorFileNotFound, plat::kErrorAccessDenied,   plat::kErrorBrokenPipe,
                                    plat::kErrorSemTimeout,   plat::kErrorPipeBusy,       plat::kErrorNoData,
                                    plat::kErrorPipeNotConnected, plat::kErrorNoSystemResources};
constexpr std::size_t kErrorSlots = std::size(kPipeErrors) + 1;

struct Counters {
  std::array<std::array<Counter, kResultSlots>, kRequestSlots> requests{};
  // Made with their bounds: not an array's default construction.
  std::vector<std::unique_ptr<metrics::Histogram>> durations;
  std::array<std::array<Counter, kErrorSlots>, kPipeSlots> pipeFailures{};
};

Counters& All() {
  // Never destroyed: workers may still count while the process exits.
  static Counters* counters = [] {
    auto* made = new Counters();
    for (std::size_t i = 0; i < kRequestSlots; ++i) {
      made->durations.push_back(std::make_unique<metrics::Histogram>(metrics::kLatencyBounds));
    }
    return made;
  }();
  return *counters;
}

std::size_t RequestSlot(int32_t requestId) {
  if (requestId == kUploadRequestId) return kRequestSlots - 1;
  for (std::size_t i = 0; i < kRouteCount; ++i) {
    if (kRoutes[i].requestId == requestId) return i + 1;
  }
  return 0;
}

std::string RequestLabel(std::size_t slot) {
  if (slot == 0) return "other";
  if (slot == kRequestSlots - 1) return std::to_string(kUploadRequestId);
  return std::to_string(kRoutes[slot - 1].requestId);
}

std::size_t ResultSlot(int32_t result) {
  if (result == kResultHandled) return kOkSlot;
  if (result == kResultHttp500) return kHttp500Slot;
  if (result == kResultHttp503) return kHttp503Slot;
  if (result < 0 && result >= kLowestCode) return static_cast<std::size_t>(-result);
  return kOtherResultSlot;
}

std::string ResultLabel(std::size_t slot) {
  if (slot == kOkSlot) return "ok";
  if (slot == kHttp500Slot) return "http_500";
  if (slot == kHttp503Slot) return "http_503";
  if (slot == kOtherResultSlot) return "other";
  return "-" + std::to_string(slot);
}

std::size_t PipeSlot(const char16_t* name) {
  for (std::size_t i = 0; i < std::size(kPipes); ++i) {
    if (name != nullptr && std::char_traits<char16_t>::compare(name, kPipes[i].name,
                                                              std::char_traits<char16_t>::length(kPipes[i].name) + 1) == 0) {
      return i;
    }
  }
  return kPipeSlots - 1;
}

std::size_t ErrorSlot(uint32_t error) {
  for (std::size_t i = 0; i < std::size(kPipeErrors); ++i) {
    if (kPipeErrors[i] == error) return i;
  }
  return kErrorSlots - 1;
}

uint64_t Read(const Counter& counter) { return counter.load(std::memory_order_relaxed); }

using metrics::Labels;
using metrics::Writer;

void RenderRequests(Writer& w) {
  const Counters& c = All();
  w.Family("vgcr_isapi_requests_total", "counter",
           "Requests answered by the extension, by requestid and by what the client got.");
  for (std::size_t r = 0; r < kRequestSlots; ++r) {
    for (std::size_t s = 0; s < kResultSlots; ++s) {
      const uint64_t n = Read(c.requests[r][s]);
      if (n) w.Sample("vgcr_isapi_requests_total", Labels({{"requestid", RequestLabel(r)}, {"result", ResultLabel(s)}}), n);
    }
  }
  w.Family("vgcr_isapi_request_duration_seconds", "histogram",
           "Time a worker spent on a request, from taking it off the queue to its last byte.");
  for (std::size_t r = 0; r < kRequestSlots; ++r) {
    const metrics::Histogram& h = *c.durations[r];
    if (!h.Empty()) h.Write(w, "vgcr_isapi_request_duration_seconds", "requestid=\"" + RequestLabel(r) + "\"");
  }
}

void RenderPipes(Writer& w) {
  const Counters& c = All();
  w.Family("vgcr_isapi_pipe_failures_total", "counter",
           "Service pipes that could not be opened or written, and round trips whose reply did not come, "
           "by pipe and Windows error code.");
  for (std::size_t p = 0; p < kPipeSlots; ++p) {
    for (std::size_t e = 0; e < kErrorSlots; ++e) {
      const uint64_t n = Read(c.pipeFailures[p][e]);
      if (n == 0) continue;
      const std::string error = e + 1 == kErrorSlots ? "other" : std::to_string(kPipeErrors[e]);
      const char* pipe = p + 1 == kPipeSlots ? "other" : kPipes[p].label;  // as PipeLabel
      w.Sample("vgcr_isapi_pipe_failures_total", Labels({{"pipe", pipe}, {"error", error}}), n);
    }
  }
}

void RenderPool(Writer& w, const PoolView& pool) {
  w.Family("vgcr_isapi_pool_workers", "gauge", "Worker threads of the extension's pool.");
  w.Sample("vgcr_isapi_pool_workers", "", uint64_t{pool.workers});
  w.Family("vgcr_isapi_pool_busy_workers", "gauge", "Workers on a request now.");
  w.Sample("vgcr_isapi_pool_busy_workers", "", uint64_t{pool.busy});
  w.Family("vgcr_isapi_pool_queued_requests", "gauge", "Requests waiting for a worker now.");
  w.Sample("vgcr_isapi_pool_queued_requests", "", uint64_t{pool.queued});
  w.Family("vgcr_isapi_pool_queue_limit", "gauge", "Requests that may wait for a worker.");
  w.Sample("vgcr_isapi_pool_queue_limit", "", uint64_t{pool.queueLimit});
  w.Family("vgcr_isapi_queue_full_refusals_total", "counter",
           "Requests answered 503 with a Retry-After because the queue was full.");
  w.Sample("vgcr_isapi_queue_full_refusals_total", "", uint64_t{pool.refusedForLoad});
}

void RenderGuards(Writer& w, const GuardCaches& guards) {
  w.Family("vgcr_isapi_memory_over_threshold", "gauge",
           "1 while the server's monitor says it is over its memory threshold (requests are answered -38).");
  w.Sample("vgcr_isapi_memory_over_threshold", "", uint64_t{guards.memOverThreshold.load(std::memory_order_relaxed) ? 1u : 0u});
  w.Family("vgcr_isapi_disk_threshold_status", "gauge",
           "The disk threshold status last read: 1700 normal, 1701 warning, any other refuses uploads.");
  w.Sample("vgcr_isapi_disk_threshold_status", "", uint64_t{guards.diskThresholdStatus.load(std::memory_order_relaxed)});
}

}  // namespace

void CountRequest(int32_t requestId, int32_t result, std::chrono::nanoseconds took) {
  Counters& c = All();
  const std::size_t slot = RequestSlot(requestId);
  c.requests[slot][ResultSlot(result)].fetch_add(1, std::memory_order_relaxed);
  c.durations[slot]->Observe(std::chrono::duration<double>(took).count());
}

void CountPipeFailure(const char16_t* pipeName, uint32_t error) {
  All().pipeFailures[PipeSlot(pipeName)][ErrorSlot(error)].fetch_add(1, std::memory_order_relaxed);
}

const char* PipeLabel(const char16_t* pipeName) {
  const std::size_t slot = PipeSlot(pipeName);
  return slot + 1 == kPipeSlots ? "other" : kPipes[slot].label;
}

std::string Render(const PoolView& pool, const GuardCaches& guards) {
  std::string out;
  out.reserve(8192);
  Writer w(&out);
  RenderRequests(w);
  RenderPipes(w);
  RenderPool(w, pool);
  RenderGuards(w, guards);
  return out;
}

}  // namespace mon
