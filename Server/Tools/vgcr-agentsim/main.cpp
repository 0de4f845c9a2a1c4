// vgcr-agentsim: loads the server as its client agents do, over HTTP only,
// with the requests and replies of docs/protocol.md; see docs/agentsim.md.
#include <cstdio>
#include <exception>

#include "certificate.h"
#include "endpoint.h"
#include "http_connection.h"
#include "options.h"
#include "report.h"
#include "simulator.h"
#include "trace_file.h"

namespace {

using namespace agentsim;

constexpr int kCompleted = 0;
constexpr int kUnreachable = 1;
constexpr int kBadOptions = 2;
constexpr std::chrono::seconds kReachWait{5};

int Refuse(const std::string& why) {
  std::fprintf(stderr, "vgcr-agentsim: %s\n(vgcr-agentsim --help for the options)\n", why.c_str());
  return kBadOptions;
}

// The files the run writes must be writable before it starts, not after.
bool Writable(const std::string& path, std::string* error) {
  if (path.empty()) return true;
  std::FILE* file = std::fopen(path.c_str(), "a");
  if (!file) {
    *error = "cannot write " + path;
    return false;
  }
  std::fclose(file);
  return true;
}

int Simulate(const Options& options, const Endpoint& endpoint, const Certificate* certificate, TraceFile* trace) {
  Simulator simulator(options, endpoint, certificate, trace);
  simulator.Run();
  const Summary summary = simulator.Summarize();
  const RunFacts facts = simulator.Facts();
  PrintTable(options, summary, facts);
  std::string error;
  if (!options.json.empty() && !WriteJson(options.json, options, summary, facts, &error)) {
    std::fprintf(stderr, "vgcr-agentsim: %s\n", error.c_str());
  }
  // Nothing ever answered: the server was not there.
  return summary.total.requests > 0 && summary.total.transport == summary.total.requests ? kUnreachable : kCompleted;
}

int Main(int argc, char** argv) {
  Options options;
  std::string error;
  switch (ParseOptions(argc, argv, &options, &error)) {
    case Parsed::kHelp: return std::fputs(Usage(), stdout), kCompleted;
    case Parsed::kBad: return Refuse(error);
    case Parsed::kRun: break;
  }
  Endpoint endpoint;
  if (!ParseUrl(options.url, &endpoint, &error)) return Refuse(error);
  Certificate certificate;
  if (options.sign && !certificate.Load(options.certificate, &error)) return Refuse(error);
  TraceFile trace;
  if (!options.trace.empty() && !trace.Open(options.trace, &error)) return Refuse(error);
  if (!Writable(options.json, &error)) return Refuse(error);
  if (!Resolve(&endpoint, &error) || !HttpConnection::Reachable(endpoint, kReachWait, &error)) {
    std::fprintf(stderr, "vgcr-agentsim: cannot reach %s: %s\n", options.url.c_str(), error.c_str());
    return kUnreachable;
  }
  return Simulate(options, endpoint, options.sign ? &certificate : nullptr, trace.open() ? &trace : nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vgcr-agentsim: %s\n", e.what());
  } catch (...) {
    std::fprintf(stderr, "vgcr-agentsim: failed\n");
  }
  return kUnreachable;
}
