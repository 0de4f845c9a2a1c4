// What the simulator counts: per connection thread and request kind, the
// requests, their outcomes and latencies; merged into one summary at the end.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <vector>

#include "kinds.h"
#include "random.h"

namespace agentsim {

// How one request went.
struct Outcome {
  bool transport = false;  // no HTTP reply at all
  int status = 0;          // HTTP status
  int code = 0;            // the reply's negative result code, 0 when none
  bool malformed = false;  // a reply the client could not read
  bool badSignature = false;
  double ms = 0;
  bool Failed() const { return transport || status != 200 || code != 0 || malformed; }
};

// An error's key in the counts by code: the HTTP status, the negative
// result code, or kMalformed.
inline constexpr int kMalformed = 0;

// Latencies in ms. Past kMaxSamples a sample replaces a random one kept
// (reservoir sampling), so that a long run's memory stays bounded while the
// percentiles stay those of the whole run; the maximum is kept exactly.
class Latencies {
 public:
  static constexpr std::size_t kMaxSamples = 20000;
  void Add(double ms, Random& random);
  const std::vector<float>& samples() const { return samples_; }
  double max() const { return max_; }

 private:
  std::vector<float> samples_;
  uint64_t seen_ = 0;
  double max_ = 0;
};

struct KindStats {
  // Read by the live report while the threads count.
  std::atomic<uint64_t> requests{0}, failed{0}, transport{0}, badSignatures{0};
  // The owner thread's alone until the run is over.
  std::map<int, uint64_t> errors;
  Latencies latencies;
};

struct ThreadStats {
  explicit ThreadStats(uint64_t seed) : random(seed) {}
  void Record(Kind kind, const Outcome& outcome);
  std::array<KindStats, kKindCount> kinds;
  std::array<std::atomic<uint64_t>, kLogFamilyCount> logsAccepted{};
  Random random;
};

struct KindSummary {
  uint64_t requests = 0, failed = 0, transport = 0, badSignatures = 0;
  std::map<int, uint64_t> errors;
  double p50 = 0, p90 = 0, p99 = 0, max = 0;
};

struct Summary {
  std::array<KindSummary, kKindCount> kinds;
  KindSummary total;
  std::array<uint64_t, kLogFamilyCount> logsAccepted{};
};

Summary Merge(const std::vector<const ThreadStats*>& threads);
// Nearest-rank percentile of sorted values; 0 when there are none.
double Percentile(const std::vector<float>& sorted, double fraction);

}  // namespace agentsim
