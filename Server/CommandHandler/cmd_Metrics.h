// What the service's commands came to, for its metrics: a count by command
// and outcome, and how long they took. A command is named only when it is
// one the service knows, so that a local process sending made-up names
// cannot grow the series without bound.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "metrics/text.h"

namespace cmd {

class CommandMetrics {
 public:
  // `what` is the command's log line: its outcome is read from it
  // ("dropped: ...", "...; answered empty", "...; not answered: ...",
  // "... failed ...", else done).
  void Count(const std::string& name, bool known, const std::string& what, double seconds);
  void Write(metrics::Writer& w) const;

  static const char* Outcome(const std::string& what);

 private:
  mutable std::mutex lock_;
  std::map<std::pair<std::string, std::string>, uint64_t> counts_;
  metrics::Histogram seconds_{metrics::kLatencyBounds};
};

}  // namespace cmd
