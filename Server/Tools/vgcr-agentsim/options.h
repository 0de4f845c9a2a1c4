// The command line of vgcr-agentsim.
#pragma once

#include <cstdint>
#include <string>

namespace agentsim {

enum class Scenario { kNone, kOutbreak, kStorm };

struct Options {
  std::string url;
  uint32_t clients = 0;
  double duration = 0;  // seconds; with a scenario, the bound on its run
  double heartbeat = 60;
  double jitter = 0.2;
  double logsPerHour = 2;
  double rate = 0;  // requests per second overall, 0: no cap
  uint32_t connections = 64;
  uint64_t seed = 1;
  double registerWithin = -1;  // below 0: the heartbeat interval
  bool sign = false;
  std::string certificate;
  Scenario scenario = Scenario::kNone;
  uint32_t outbreakLogs = 5;
  std::string json;
  std::string trace;
};

enum class Parsed { kRun, kHelp, kBad };

// Fills `options` from the arguments; on kBad `error` says why.
Parsed ParseOptions(int argc, char** argv, Options* options, std::string* error);
const char* Usage();

}  // namespace agentsim
