#include "metrics/text.h"

#include <cstdio>

namespace metrics {

void Writer::Family(const char* name, const char* type, const char* help) {
  out_.append("# HELP ").append(name).append(" ").append(help).append("\n# TYPE ");
  out_.append(name).append(" ").append(type).append("\n");
}

void Writer::Sample(const std::string& name, const std::string& labels, uint64_t value) {
  out_.append(name).append(labels).append(" ").append(std::to_string(value)).append("\n");
}

void Writer::Sample(const std::string& name, const std::string& labels, double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.9g", value);
  out_.append(name).append(labels).append(" ").append(text).append("\n");
}

std::string Labels(std::initializer_list<std::pair<const char*, std::string>> labels) {
  std::string out = "{";
  for (const auto& [name, value] : labels) {
    if (out.size() > 1) out += ',';
    out.append(name).append("=\"");
    for (char c : value) {
      if (c == '\\' || c == '"') out += '\\';
      if (c == '\n') {
        out += "\\n";
        continue;
      }
      out += c;
    }
    out += '"';
  }
  return out + "}";
}

Histogram::Histogram(std::initializer_list<double> bounds)
    : bounds_(bounds), counts_(new std::atomic<uint64_t>[bounds.size() + 1]) {
  for (std::size_t i = 0; i <= bounds_.size(); ++i) counts_[i] = 0;
}

void Histogram::Observe(double value) {
  std::size_t bucket = 0;
  while (bucket < bounds_.size() && value > bounds_[bucket]) ++bucket;
  counts_[bucket].fetch_add(1, std::memory_order_relaxed);
  sum_.fetch_add(value, std::memory_order_relaxed);
}

bool Histogram::Empty() const {
  for (std::size_t i = 0; i <= bounds_.size(); ++i) {
    if (counts_[i].load(std::memory_order_relaxed)) return false;
  }
  return true;
}

void Histogram::Write(Writer& w, const std::string& name, const std::string& labels) const {
  const std::string own = labels.empty() ? "" : labels + ",";
  uint64_t cumulative = 0;
  for (std::size_t i = 0; i < bounds_.size(); ++i) {
    cumulative += counts_[i].load(std::memory_order_relaxed);
    char bound[32];
    std::snprintf(bound, sizeof bound, "%g", bounds_[i]);
    w.Sample(name + "_bucket", "{" + own + "le=\"" + bound + "\"}", cumulative);
  }
  cumulative += counts_[bounds_.size()].load(std::memory_order_relaxed);
  w.Sample(name + "_bucket", "{" + own + "le=\"+Inf\"}", cumulative);
  const std::string braces = labels.empty() ? "" : "{" + labels + "}";
  w.Sample(name + "_sum", braces, sum_.load(std::memory_order_relaxed));
  w.Sample(name + "_count", braces, cumulative);
}

}  // namespace metrics
