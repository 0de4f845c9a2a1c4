#include "mon_Metrics.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>

#include "channel/channel_Settings.h"
#include "grd_Guards.h"
#include "isapi_Result.h"
#include "isapi_Routes.h"
#include "platform/errors.h"

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

// Upper bounds of the duration buckets, in seconds: a reply from the
// database takes milliseconds, a busy service tens of them, and the reply
// time-out (10 s) ends the scale.
constexpr std::array<double, 13> kBuckets = {0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1,
                                             0.25,  0.5,    1,     2.5,  5,     10};

struct Pipe {
  const char16_t* name;
  const char* label;
};
constexpr Pipe kPipes[] = {{kCommandHandlerPipe, "command_handler"},
                           {kCommandHandler2Pipe, "command_handler2"},
                           {kServerNotifyPipe, "server_notify"},
                           {kThreatLogPipe, "threat_log"}};
constexpr std::size_t kPipeSlots = std::size(kPipes) + 1;  // the last: "other"

// The errors a pipe fails with in practice; any other counts as "other".
constexpr uint32_t kPipeErrors[] = {plat::kErrorFileNotFound, plat::kErrorAccessDenied,   plat::kErrorBrokenPipe,
                                    plat::kErrorSemTimeout,   plat::kErrorPipeBusy,       plat::kErrorNoData,
                                    plat::kErrorPipeNotConnected, plat::kErrorNoSystemResources};
constexpr std::size_t kErrorSlots = std::size(kPipeErrors) + 1;

struct Histogram {
  std::array<Counter, kBuckets.size() + 1> buckets{};  // the last: over every bound
  Counter sumNanoseconds{0};
};

struct Counters {
  std::array<std::array<Counter, kResultSlots>, kRequestSlots> requests{};
  std::array<Histogram, kRequestSlots> durations{};
  std::array<std::array<Counter, kErrorSlots>, kPipeSlots> pipeFailures{};
};

Counters& All() {
  // Never destroyed: workers may still count while the process exits.
  static Counters* counters = new Counters();
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

bool AnyBucket(const Histogram& h) {
  for (const Counter& n : h.buckets) {
    if (Read(n)) return true;
  }
  return false;
}

class Writer {
 public:
  explicit Writer(std::string* out) : out_(*out) {}
  void Family(const char* name, const char* type, const char* help) {
    out_.append("# HELP ").append(name).append(" ").append(help).append("\n# TYPE ");
    out_.append(name).append(" ").append(type).append("\n");
  }
  void Sample(const char* name, const std::string& labels, uint64_t value) {
    out_.append(name).append(labels).append(" ").append(std::to_string(value)).append("\n");
  }
  void Seconds(const char* name, const std::string& labels, uint64_t nanoseconds) {
    char value[40];
    std::snprintf(value, sizeof value, "%.9f", static_cast<double>(nanoseconds) / 1e9);
    out_.append(name).append(labels).append(" ").append(value).append("\n");
  }

 private:
  std::string& out_;
};

void RenderRequests(Writer& w) {
  const Counters& c = All();
  w.Family("vgcr_isapi_requests_total", "counter",
           "Requests answered by the extension, by requestid and by what the client got.");
  for (std::size_t r = 0; r < kRequestSlots; ++r) {
    for (std::size_t s = 0; s < kResultSlots; ++s) {
      const uint64_t n = Read(c.requests[r][s]);
      if (n) w.Sample("vgcr_isapi_requests_total", "{requestid=\"" + RequestLabel(r) + "\",result=\"" + ResultLabel(s) + "\"}", n);
    }
  }
  w.Family("vgcr_isapi_request_duration_seconds", "histogram",
           "Time a worker spent on a request, from taking it off the queue to its last byte.");
  for (std::size_t r = 0; r < kRequestSlots; ++r) {
    const Histogram& h = c.durations[r];
    if (!AnyBucket(h)) continue;
    const std::string id = "requestid=\"" + RequestLabel(r) + "\"";
    uint64_t cumulative = 0;
    for (std::size_t b = 0; b < kBuckets.size(); ++b) {
      cumulative += Read(h.buckets[b]);
      char le[32];
      std::snprintf(le, sizeof le, "%g", kBuckets[b]);
      w.Sample("vgcr_isapi_request_duration_seconds_bucket", "{" + id + ",le=\"" + le + "\"}", cumulative);
    }
    // The count is the buckets' total as read here, so that a request
    // counted while this renders cannot make the buckets disagree with it.
    cumulative += Read(h.buckets[kBuckets.size()]);
    w.Sample("vgcr_isapi_request_duration_seconds_bucket", "{" + id + ",le=\"+Inf\"}", cumulative);
    w.Seconds("vgcr_isapi_request_duration_seconds_sum", "{" + id + "}", Read(h.sumNanoseconds));
    w.Sample("vgcr_isapi_request_duration_seconds_count", "{" + id + "}", cumulative);
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
      const char* pipe = p + 1 == kPipeSlots ? "other" : kPipes[p].label;
      w.Sample("vgcr_isapi_pipe_failures_total", std::string("{pipe=\"") + pipe + "\",error=\"" + error + "\"}", n);
    }
  }
}

void RenderPool(Writer& w, const PoolView& pool) {
  w.Family("vgcr_isapi_pool_workers", "gauge", "Worker threads of the extension's pool.");
  w.Sample("vgcr_isapi_pool_workers", "", pool.workers);
  w.Family("vgcr_isapi_pool_busy_workers", "gauge", "Workers on a request now.");
  w.Sample("vgcr_isapi_pool_busy_workers", "", pool.busy);
  w.Family("vgcr_isapi_pool_queued_requests", "gauge", "Requests waiting for a worker now.");
  w.Sample("vgcr_isapi_pool_queued_requests", "", pool.queued);
  w.Family("vgcr_isapi_pool_queue_limit", "gauge", "Requests that may wait for a worker.");
  w.Sample("vgcr_isapi_pool_queue_limit", "", pool.queueLimit);
  w.Family("vgcr_isapi_queue_full_refusals_total", "counter",
           "Requests answered 503 with a Retry-After because the queue was full.");
  w.Sample("vgcr_isapi_queue_full_refusals_total", "", pool.refusedForLoad);
}

void RenderGuards(Writer& w, const GuardCaches& guards) {
  w.Family("vgcr_isapi_memory_over_threshold", "gauge",
           "1 while the server's monitor says it is over its memory threshold (requests are answered -38).");
  w.Sample("vgcr_isapi_memory_over_threshold", "", guards.memOverThreshold.load(std::memory_order_relaxed) ? 1 : 0);
  w.Family("vgcr_isapi_disk_threshold_status", "gauge",
           "The disk threshold status last read: 1700 normal, 1701 warning, any other refuses uploads.");
  w.Sample("vgcr_isapi_disk_threshold_status", "", guards.diskThresholdStatus.load(std::memory_order_relaxed));
}

}  // namespace

void CountRequest(int32_t requestId, int32_t result, std::chrono::nanoseconds took) {
  Counters& c = All();
  const std::size_t slot = RequestSlot(requestId);
  c.requests[slot][ResultSlot(result)].fetch_add(1, std::memory_order_relaxed);
  const uint64_t ns = took.count() > 0 ? static_cast<uint64_t>(took.count()) : 0;
  const double seconds = static_cast<double>(ns) / 1e9;
  std::size_t bucket = 0;
  while (bucket < kBuckets.size() && seconds > kBuckets[bucket]) ++bucket;
  Histogram& h = c.durations[slot];
  h.buckets[bucket].fetch_add(1, std::memory_order_relaxed);
  h.sumNanoseconds.fetch_add(ns, std::memory_order_relaxed);
}

void CountPipeFailure(const char16_t* pipeName, uint32_t error) {
  All().pipeFailures[PipeSlot(pipeName)][ErrorSlot(error)].fetch_add(1, std::memory_order_relaxed);
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
