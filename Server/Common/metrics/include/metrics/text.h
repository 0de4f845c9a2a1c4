// Prometheus text format 0.0.4, as the extension, isapi-host and the
// command-handler service write their metrics: a family's HELP and TYPE
// lines, then its samples; counters and histograms kept in atomics so that
// the threads that count never take a lock.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace metrics {

class Writer {
 public:
  explicit Writer(std::string* out) : out_(*out) {}
  // type: "counter", "gauge" or "histogram".
  void Family(const char* name, const char* type, const char* help);
  // labels: empty, or "{name=\"value\",...}" (Labels builds one).
  void Sample(const std::string& name, const std::string& labels, uint64_t value);
  void Sample(const std::string& name, const std::string& labels, double value);

 private:
  std::string& out_;
};

// {a="1",b="2"}: values escaped as the format wants (\\, \" and \n).
std::string Labels(std::initializer_list<std::pair<const char*, std::string>> labels);

// A histogram with fixed upper bounds (ascending, without +Inf).
class Histogram {
 public:
  explicit Histogram(std::initializer_list<double> bounds);
  Histogram(const Histogram&) = delete;
  Histogram& operator=(const Histogram&) = delete;

  void Observe(double value);
  bool Empty() const;
  // The _bucket, _sum and _count samples of one series; `labels` are the
  // series' own, without braces ("requestid=\"207\"", or empty). The count
  // is the buckets' total as read, so that an observation made meanwhile
  // cannot make the buckets disagree with it.
  void Write(Writer& w, const std::string& name, const std::string& labels) const;

 private:
  std::vector<double> bounds_;
  std::unique_ptr<std::atomic<uint64_t>[]> counts_;  // one per bound, and one above them all
  std::atomic<double> sum_{0};
};

// Bounds for the time a request or a command takes, in seconds: from a
// millisecond to the extension's reply time-out.
inline constexpr std::initializer_list<double> kLatencyBounds = {0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                                               0.1,    0.25,  0.5,    1,     2.5,  5,     10};

}  // namespace metrics
