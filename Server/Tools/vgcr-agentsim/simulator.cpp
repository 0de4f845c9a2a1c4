#include "simulator.h"

#include <cstdio>
#include <exception>
#include <system_error>
#include <thread>

#include "replies.h"

namespace agentsim {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLiveEvery{10};

int64_t Microseconds(double seconds) { return static_cast<int64_t>(seconds * 1e6); }

}  // namespace

Simulator::Simulator(const Options& options, const Endpoint& endpoint, const Certificate* certificate,
                     TraceFile* trace)
    : options_(options),
      endpoint_(endpoint),
      certificate_(certificate),
      trace_(trace),
      schedule_(options.duration),
      rateLimit_(options.rate),
      clients_(options.clients) {
  if (certificate_) {
    trusted_ = {certificate_->issuer(), certificate_->serial()};
    signingQuery_ = "&SA_ISR=" + UrlEncode(trusted_.issuer) + "&SA_SN=" + trusted_.serial;
  }
}

Simulator::~Simulator() = default;

// Every client's registration, spread evenly at random over --register-within.
void Simulator::Seed() {
  Random random(Mix64(options_.seed ^ 0x5EED));
  std::vector<Due> first;
  first.reserve(clients_.size());
  for (uint32_t client = 0; client < clients_.size(); ++client) {
    first.push_back({Microseconds(random.Unit() * options_.registerWithin), client, Action::kRegister});
  }
  schedule_.PushMany(first);
}

void Simulator::Run() {
  Seed();
  std::vector<std::thread> threads;
  for (uint32_t i = 0; i < options_.connections; ++i) {
    workers_.push_back(std::make_unique<Worker>(endpoint_, Mix64(options_.seed + i + 1)));
  }
  for (auto& worker : workers_) {
    try {
      threads.emplace_back([this, &worker] { Work(*worker); });
    } catch (const std::system_error& e) {
      // The system's limit on threads: the run goes on with those it has.
      std::fprintf(stderr, "vgcr-agentsim: %zu connections only: %s\n", threads.size(), e.what());
      if (threads.empty()) schedule_.Stop();
      break;
    }
  }
  while (!schedule_.WaitOver(kLiveEvery)) PrintLive();
  finished_ = schedule_.pending() == 0;
  schedule_.Stop();
  for (std::thread& thread : threads) thread.join();
  elapsed_ = std::chrono::duration<double>(Clock::now() - schedule_.start()).count();
}

void Simulator::Work(Worker& worker) {
  try {
    Due due{};
    while (schedule_.Take(&due)) {
      Execute(worker, due);
      schedule_.Done();
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vgcr-agentsim: a connection thread stopped: %s\n", e.what());
    schedule_.Stop();
  }
}

void Simulator::Execute(Worker& worker, const Due& due) {
  switch (due.action) {
    case Action::kRegister: return Register(worker, due.client);
    case Action::kHeartbeat: return Heartbeat(worker, due.client);
    case Action::kSettings: return FetchSettings(worker, due.client);
    case Action::kAlert: return FetchAlert(worker, due.client);
    case Action::kLog: return ReportLog(worker, due.client, false);
    case Action::kBurstLog: return ReportLog(worker, due.client, true);
    case Action::kStatus: return ReportStatus(worker, due.client);
    case Action::kLogon: return ReportLogon(worker, due.client);
  }
}

std::optional<Outcome> Simulator::Send(Worker& worker, const std::string& query, std::string* body) {
  std::string target = endpoint_.path + "?" + query;
  int32_t number = 0;
  if (certificate_) {
    number = 1 + static_cast<int32_t>(worker.random.Below(0x7FFFFFFE));
    target += signingQuery_ + "&SA_RN=" + std::to_string(number);
  }
  // Nothing goes out once the run is over, not even the rest of an action.
  if (Clock::now() >= schedule_.end() || !rateLimit_.Acquire(schedule_.end())) return std::nullopt;
  Outcome outcome;
  HttpReply reply;
  std::string error;
  const Clock::time_point sent = Clock::now();
  const bool answered = worker.connection.Get(target, &reply, &error);
  outcome.ms = std::chrono::duration<double, std::milli>(Clock::now() - sent).count();
  if (!answered) {
    outcome.transport = true;
    if (worker.transportError.empty()) worker.transportError = error;
    return outcome;
  }
  outcome.status = reply.status;
  if (reply.status == 200) {
    outcome.code = NegativeCode(reply.body).value_or(0);
    outcome.badSignature =
        certificate_ && (reply.signature.empty() || !certificate_->Verifies(reply.body, number, reply.signature));
  }
  *body = std::move(reply.body);
  return outcome;
}

void Simulator::Record(Worker& worker, uint32_t client, Kind kind, const Outcome& outcome, const std::string& note) {
  worker.stats.Record(kind, outcome);
  if (trace_) trace_->Write(schedule_.NowUs() / 1000, client, kind, outcome, note);
}

void Simulator::After(uint32_t client, Action action, double seconds) {
  schedule_.Push({schedule_.NowUs() + Microseconds(seconds), client, action});
}

double Simulator::HeartbeatInterval(Random& random) const {
  return options_.heartbeat * (1 + options_.jitter * (2 * random.Unit() - 1));
}

void Simulator::PrintLive() const {
  uint64_t requests = 0, failed = 0, transport = 0, badSignatures = 0;
  for (const auto& worker : workers_) {
    for (const KindStats& k : worker->stats.kinds) {
      requests += k.requests.load(std::memory_order_relaxed);
      failed += k.failed.load(std::memory_order_relaxed);
      transport += k.transport.load(std::memory_order_relaxed);
      badSignatures += k.badSignatures.load(std::memory_order_relaxed);
    }
  }
  const double seconds = static_cast<double>(schedule_.NowUs()) / 1e6;
  std::printf("[%6.0f s] %llu requests (%.1f/s), %llu failed, %llu transport, %llu bad signatures, "
              "%llu/%zu registered\n",
              seconds, static_cast<unsigned long long>(requests), seconds > 0 ? requests / seconds : 0.0,
              static_cast<unsigned long long>(failed), static_cast<unsigned long long>(transport),
              static_cast<unsigned long long>(badSignatures),
              static_cast<unsigned long long>(registrations_.load()), clients_.size());
  std::fflush(stdout);
}

Summary Simulator::Summarize() const {
  std::vector<const ThreadStats*> stats;
  for (const auto& worker : workers_) stats.push_back(&worker->stats);
  return Merge(stats);
}

RunFacts Simulator::Facts() const {
  RunFacts facts;
  facts.elapsed = elapsed_;
  facts.finished = finished_;
  facts.registrations = registrations_.load();
  facts.registrationsOk = registrationsOk_.load();
  if (firstRegistrationUs_.load() >= 0) {
    facts.registrationSpan = static_cast<double>(lastRegistrationUs_.load() - firstRegistrationUs_.load()) / 1e6;
  }
  if (options_.scenario == Scenario::kOutbreak) {
    facts.burstLogs = static_cast<uint64_t>(options_.clients) * options_.outbreakLogs;
    facts.burstDone = burstStartUs_.load() < 0 ? 0 : facts.burstLogs - burstLeft_.load();
    if (burstEndUs_.load() >= 0) facts.burstSeconds = static_cast<double>(burstEndUs_ - burstStartUs_) / 1e6;
  }
  for (const auto& worker : workers_) {
    if (facts.transportError.empty()) facts.transportError = worker->transportError;
  }
  return facts;
}

}  // namespace agentsim
