#include "cmd_Metrics.h"

namespace cmd {

const char* CommandMetrics::Outcome(const std::string& what) {
  if (what.rfind("dropped", 0) == 0) return "dropped";
  if (what.find("; not answered") != std::string::npos) return "not_answered";
  if (what.find("answered empty") != std::string::npos) return "answered_empty";
  if (what.find("failed") != std::string::npos) return "failed";
  return "done";
}

void CommandMetrics::Count(const std::string& name, bool known, const std::string& what, double seconds) {
  seconds_.Observe(seconds);
  std::lock_guard lock(lock_);
  ++counts_[{known ? name : "unknown", Outcome(what)}];
}

void CommandMetrics::Write(metrics::Writer& w) const {
  w.Family("vgcr_cmdhandler_commands_total", "counter",
           "Commands taken off the pipes, by command and outcome (done, dropped, failed, answered_empty, "
           "not_answered).");
  {
    std::lock_guard lock(lock_);
    for (const auto& [key, count] : counts_) {
      w.Sample("vgcr_cmdhandler_commands_total", metrics::Labels({{"command", key.first}, {"outcome", key.second}}),
               count);
    }
  }
  w.Family("vgcr_cmdhandler_command_seconds", "histogram", "Time to run one command and answer it.");
  seconds_.Write(w, "vgcr_cmdhandler_command_seconds", "");
}

}  // namespace cmd
