// The simulated clients and the connection threads that carry out what each
// client does next.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "certificate.h"
#include "endpoint.h"
#include "http_connection.h"
#include "options.h"
#include "queries.h"
#include "rate_limit.h"
#include "schedule.h"
#include "stats.h"
#include "trace_file.h"

namespace agentsim {

// What a client remembers between its heartbeats: all it holds in memory.
struct ClientState {
  int32_t sequence = 0;   // SETTING_SEQUENCE of its last heartbeat
  int32_t messageId = 0;  // MESSAGE_ID of its last heartbeat
  bool polled = false;    // the two above come from a heartbeat
};

// Facts of the run beside the counts, for the report.
struct RunFacts {
  double elapsed = 0;  // seconds
  bool finished = false;  // a scenario did all it had to before its bound
  uint64_t registrations = 0, registrationsOk = 0;  // sent (whatever the outcome), without error
  double registrationSpan = 0;  // first registration sent to last answered, seconds
  uint64_t burstLogs = 0, burstDone = 0;
  double burstSeconds = 0;  // the outbreak's logs: first sent to last answered
  std::string transportError;  // the first one, for the reader
};

class Simulator {
 public:
  Simulator(const Options& options, const Endpoint& endpoint, const Certificate* certificate, TraceFile* trace);
  ~Simulator();
  // Runs until the duration is over, or a scenario is done; prints a line
  // every 10 s.
  void Run();
  Summary Summarize() const;
  RunFacts Facts() const;

 private:
  struct Worker {
    Worker(const Endpoint& endpoint, uint64_t seed) : connection(endpoint), stats(seed), random(seed ^ 0xC11E47) {}
    HttpConnection connection;
    ThreadStats stats;
    Random random;
    std::string transportError;
  };

  void Seed();
  void Work(Worker& worker);
  void Execute(Worker& worker, const Due& due);
  void PrintLive() const;
  // One request; nullopt when the rate cap would send it after the run's end.
  std::optional<Outcome> Send(Worker& worker, const std::string& query, std::string* body);
  void Record(Worker& worker, uint32_t client, Kind kind, const Outcome& outcome, const std::string& note = "");
  void After(uint32_t client, Action action, double seconds);
  double HeartbeatInterval(Random& random) const;

  // The actions (client_actions.cpp).
  void Register(Worker& worker, uint32_t client);
  void Heartbeat(Worker& worker, uint32_t client);
  void FetchSettings(Worker& worker, uint32_t client);
  void FetchAlert(Worker& worker, uint32_t client);
  void ReportLog(Worker& worker, uint32_t client, bool burst);
  void ReportStatus(Worker& worker, uint32_t client);
  void ReportLogon(Worker& worker, uint32_t client);
  void Registered(Worker& worker, uint32_t client, const Outcome& outcome);
  void StartBurst();

  const Options& options_;
  const Endpoint& endpoint_;
  const Certificate* certificate_;
  TraceFile* trace_;
  Schedule schedule_;
  RateLimit rateLimit_;
  std::string signingQuery_;  // "&SA_ISR=...&SA_SN=..." when signing
  TrustedCertificate trusted_;
  std::vector<ClientState> clients_;
  std::vector<std::unique_ptr<Worker>> workers_;

  std::atomic<uint64_t> registrations_{0}, registrationsOk_{0};
  std::atomic<int64_t> firstRegistrationUs_{-1}, lastRegistrationUs_{0};
  std::atomic<int64_t> burstStartUs_{-1}, burstEndUs_{-1};
  std::atomic<uint64_t> burstLeft_{0};
  double elapsed_ = 0;
  bool finished_ = false;
};

}  // namespace agentsim
