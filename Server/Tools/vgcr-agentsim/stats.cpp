#include "stats.h"

#include <algorithm>
#include <cmath>

namespace agentsim {

void Latencies::Add(double ms, Random& random) {
  max_ = std::max(max_, ms);
  ++seen_;
  if (samples_.size() < kMaxSamples) {
    samples_.push_back(static_cast<float>(ms));
    return;
  }
  const uint64_t slot = random.Next() % seen_;
  if (slot < kMaxSamples) samples_[slot] = static_cast<float>(ms);
}

void ThreadStats::Record(Kind kind, const Outcome& outcome) {
  KindStats& s = kinds[static_cast<std::size_t>(kind)];
  s.requests.fetch_add(1, std::memory_order_relaxed);
  if (outcome.badSignature) s.badSignatures.fetch_add(1, std::memory_order_relaxed);
  if (outcome.transport) {
    s.transport.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  s.latencies.Add(outcome.ms, random);
  if (!outcome.Failed()) return;
  s.failed.fetch_add(1, std::memory_order_relaxed);
  ++s.errors[outcome.status != 200 ? outcome.status : outcome.malformed ? kMalformed : outcome.code];
}

double Percentile(const std::vector<float>& sorted, double fraction) {
  if (sorted.empty()) return 0;
  const std::size_t rank = static_cast<std::size_t>(std::ceil(fraction * static_cast<double>(sorted.size())));
  return sorted[std::clamp<std::size_t>(rank, 1, sorted.size()) - 1];
}

namespace {

void Add(const KindStats& from, KindSummary* to, std::vector<float>* samples) {
  to->requests += from.requests.load();
  to->failed += from.failed.load();
  to->transport += from.transport.load();
  to->badSignatures += from.badSignatures.load();
  for (const auto& [code, count] : from.errors) to->errors[code] += count;
  to->max = std::max(to->max, from.latencies.max());
  samples->insert(samples->end(), from.latencies.samples().begin(), from.latencies.samples().end());
}

void Finish(std::vector<float>* samples, KindSummary* summary) {
  std::sort(samples->begin(), samples->end());
  summary->p50 = Percentile(*samples, 0.50);
  summary->p90 = Percentile(*samples, 0.90);
  summary->p99 = Percentile(*samples, 0.99);
}

}  // namespace

Summary Merge(const std::vector<const ThreadStats*>& threads) {
  Summary summary;
  std::vector<float> all;
  for (std::size_t k = 0; k < kKindCount; ++k) {
    std::vector<float> samples;
    for (const ThreadStats* t : threads) {
      Add(t->kinds[k], &summary.kinds[k], &samples);
      Add(t->kinds[k], &summary.total, &all);
    }
    Finish(&samples, &summary.kinds[k]);
  }
  Finish(&all, &summary.total);
  for (const ThreadStats* t : threads) {
    for (std::size_t f = 0; f < kLogFamilyCount; ++f) summary.logsAccepted[f] += t->logsAccepted[f].load();
  }
  return summary;
}

}  // namespace agentsim
