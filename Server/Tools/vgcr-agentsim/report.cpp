#include "report.h"

#include <json/json.h>

#include <cstdio>
#include <fstream>
#include <memory>

namespace agentsim {

namespace {

const char* ScenarioName(Scenario scenario) {
  switch (scenario) {
    case Scenario::kOutbreak: return "outbreak";
    case Scenario::kStorm: return "storm";
    case Scenario::kNone: break;
  }
  return "none";
}

std::string ErrorKey(int code) {
  if (code == kMalformed) return "malformed";
  return code > 0 ? "http" + std::to_string(code) : std::to_string(code);
}

std::string ErrorList(const KindSummary& k) {
  std::string text;
  for (const auto& [code, count] : k.errors) text += (text.empty() ? "" : " ") + ErrorKey(code) + ":" + std::to_string(count);
  return text.empty() ? "-" : text;
}

double PerSecond(uint64_t count, double seconds) { return seconds > 0 ? static_cast<double>(count) / seconds : 0; }

void PrintRow(const char* name, const KindSummary& k, double elapsed) {
  std::printf("%-10s %9llu %9.1f %8llu %9llu %7llu %8.2f %8.2f %8.2f %8.2f  %s\n", name,
              static_cast<unsigned long long>(k.requests), PerSecond(k.requests, elapsed),
              static_cast<unsigned long long>(k.failed), static_cast<unsigned long long>(k.transport),
              static_cast<unsigned long long>(k.badSignatures), k.p50, k.p90, k.p99, k.max, ErrorList(k).c_str());
}

void PrintScenario(const Options& options, const RunFacts& facts) {
  std::printf("registrations: %llu of %u sent, %llu without error, over %.2f s (%.1f/s)\n",
              static_cast<unsigned long long>(facts.registrations), options.clients,
              static_cast<unsigned long long>(facts.registrationsOk), facts.registrationSpan,
              PerSecond(facts.registrations, facts.registrationSpan));
  if (options.scenario == Scenario::kOutbreak) {
    if (facts.burstDone == facts.burstLogs && facts.burstLogs > 0) {
      std::printf("outbreak: %llu virus logs from %u clients in %.2f s (%.1f/s)\n",
                  static_cast<unsigned long long>(facts.burstLogs), options.clients, facts.burstSeconds,
                  PerSecond(facts.burstLogs, facts.burstSeconds));
    } else {
      std::printf("outbreak: %llu of %llu virus logs sent before the run's bound\n",
                  static_cast<unsigned long long>(facts.burstDone), static_cast<unsigned long long>(facts.burstLogs));
    }
  }
  if (options.scenario != Scenario::kNone && !facts.finished) {
    std::printf("the scenario did not finish within %.0f s\n", options.duration);
  }
}

Json::Value KindJson(const KindSummary& k, double elapsed) {
  Json::Value v;
  v["requests"] = Json::UInt64(k.requests);
  v["rate_per_s"] = PerSecond(k.requests, elapsed);
  v["ok"] = Json::UInt64(k.requests - k.failed - k.transport);
  v["failed"] = Json::UInt64(k.failed);
  v["transport_errors"] = Json::UInt64(k.transport);
  v["signature_failures"] = Json::UInt64(k.badSignatures);
  v["errors"] = Json::objectValue;
  for (const auto& [code, count] : k.errors) v["errors"][ErrorKey(code)] = Json::UInt64(count);
  Json::Value& latency = v["latency_ms"];
  latency["p50"] = k.p50;
  latency["p90"] = k.p90;
  latency["p99"] = k.p99;
  latency["max"] = k.max;
  return v;
}

Json::Value ScenarioJson(const Options& options, const RunFacts& facts) {
  Json::Value v;
  v["registrations"]["sent"] = Json::UInt64(facts.registrations);
  v["registrations"]["ok"] = Json::UInt64(facts.registrationsOk);
  v["registrations"]["span_s"] = facts.registrationSpan;
  v["registrations"]["per_s"] = PerSecond(facts.registrations, facts.registrationSpan);
  if (options.scenario == Scenario::kOutbreak) {
    v["outbreak"]["logs"] = Json::UInt64(facts.burstLogs);
    v["outbreak"]["sent"] = Json::UInt64(facts.burstDone);
    v["outbreak"]["seconds"] = facts.burstSeconds;
    v["outbreak"]["per_s"] = PerSecond(facts.burstDone, facts.burstSeconds);
  }
  return v;
}

}  // namespace

void PrintTable(const Options& options, const Summary& summary, const RunFacts& facts) {
  std::printf("\n%u clients, %.1f s, scenario %s\n", options.clients, facts.elapsed, ScenarioName(options.scenario));
  std::printf("%-10s %9s %9s %8s %9s %7s %8s %8s %8s %8s  %s\n", "kind", "requests", "rate/s", "failed", "transport",
              "badsig", "p50 ms", "p90 ms", "p99 ms", "max ms", "errors by code");
  for (std::size_t k = 0; k < kKindCount; ++k) {
    if (summary.kinds[k].requests > 0) PrintRow(kKindNames[k], summary.kinds[k], facts.elapsed);
  }
  PrintRow("total", summary.total, facts.elapsed);
  std::printf("logs accepted:");
  for (std::size_t f = 0; f < kLogFamilyCount; ++f) {
    std::printf(" %s %llu", kLogFamilyNames[f], static_cast<unsigned long long>(summary.logsAccepted[f]));
  }
  std::printf("\n");
  PrintScenario(options, facts);
  if (!facts.transportError.empty()) std::printf("first transport error: %s\n", facts.transportError.c_str());
  std::fflush(stdout);
}

bool WriteJson(const std::string& path, const Options& options, const Summary& summary, const RunFacts& facts,
               std::string* error) {
  Json::Value root;
  root["clients"] = options.clients;
  root["seed"] = Json::UInt64(options.seed);
  root["scenario"] = ScenarioName(options.scenario);
  root["elapsed_s"] = facts.elapsed;
  if (options.scenario != Scenario::kNone) root["finished"] = facts.finished;
  root["signed"] = options.sign;
  for (std::size_t k = 0; k < kKindCount; ++k) root["kinds"][kKindNames[k]] = KindJson(summary.kinds[k], facts.elapsed);
  root["total"] = KindJson(summary.total, facts.elapsed);
  for (std::size_t f = 0; f < kLogFamilyCount; ++f) {
    root["logs_accepted"][kLogFamilyNames[f]] = Json::UInt64(summary.logsAccepted[f]);
  }
  root["scenario_figures"] = ScenarioJson(options, facts);
  if (!facts.transportError.empty()) root["first_transport_error"] = facts.transportError;
  std::ofstream file(path, std::ios::trunc);
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["precision"] = 6;
  file << Json::writeString(builder, root) << "\n";
  if (!file.good()) {
    *error = "cannot write " + path;
    return false;
  }
  return true;
}

}  // namespace agentsim
