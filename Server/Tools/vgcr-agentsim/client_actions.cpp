// What a simulated client does, one action at a time, and what it schedules
// next: as an agent in the field, it registers once, then polls with its
// heartbeat, fetches what its heartbeat says has changed, and reports logs,
// its protection status and its logon user now and then.
#include "replies.h"
#include "simulator.h"

namespace agentsim {

namespace {

// A status or logon report follows about one heartbeat in ten, each.
constexpr uint32_t kReportOneIn = 10;

std::string PollingNote(const PollingState& state) {
  return "seq=" + std::to_string(state.settingSequence) + " msg=" + std::to_string(state.messageId);
}

}  // namespace

void Simulator::Register(Worker& worker, uint32_t client) {
  const Identity id = MakeIdentity(options_.seed, client);
  int64_t unset = -1;
  firstRegistrationUs_.compare_exchange_strong(unset, schedule_.NowUs());
  std::string body;
  std::optional<Outcome> outcome = Send(worker, RegistrationQuery(id, certificate_ ? &trusted_ : nullptr), &body);
  if (!outcome) return;
  // A registration is answered "1", a line feed and the server's time.
  outcome->malformed = !outcome->Failed() && body.rfind("1\n", 0) != 0;
  Record(worker, client, Kind::kRegister, *outcome, "uid=" + id.uid);
  Registered(worker, client, *outcome);
}

// Counts the registration in, and starts what the client does next.
void Simulator::Registered(Worker& worker, uint32_t client, const Outcome& outcome) {
  if (!outcome.Failed()) registrationsOk_.fetch_add(1);
  int64_t last = lastRegistrationUs_.load();
  const int64_t now = schedule_.NowUs();
  while (last < now && !lastRegistrationUs_.compare_exchange_weak(last, now)) {
  }
  const uint64_t done = registrations_.fetch_add(1) + 1;
  switch (options_.scenario) {
    case Scenario::kStorm:
      return After(client, Action::kHeartbeat, 0);
    case Scenario::kOutbreak:
      if (done == clients_.size()) StartBurst();
      return;
    case Scenario::kNone:
      // The first heartbeat comes somewhere in the first interval, so that a
      // fleet registered together does not poll in step.
      After(client, Action::kHeartbeat, worker.random.Unit() * options_.heartbeat);
      if (options_.logsPerHour > 0) After(client, Action::kLog, worker.random.Exponential(3600 / options_.logsPerHour));
      return;
  }
}

void Simulator::Heartbeat(Worker& worker, uint32_t client) {
  std::string body;
  std::optional<Outcome> outcome = Send(worker, HeartbeatQuery(MakeIdentity(options_.seed, client)), &body);
  if (!outcome) return;
  PollingState polling;
  const bool read = !outcome->Failed() && ParsePolling(body, &polling);
  outcome->malformed = !outcome->Failed() && !read;
  Record(worker, client, Kind::kHeartbeat, *outcome, read ? PollingNote(polling) : "");
  ClientState& state = clients_[client];
  if (read) {
    // Only a change from what the client saw last sends it fetching; the
    // first heartbeat tells it where things stand.
    if (state.polled && polling.settingSequence != state.sequence) After(client, Action::kSettings, 0);
    if (state.polled && polling.messageId != state.messageId) After(client, Action::kAlert, 0);
    state = {polling.settingSequence, polling.messageId, true};
  }
  if (options_.scenario == Scenario::kStorm) return;
  After(client, Action::kHeartbeat, HeartbeatInterval(worker.random));
  if (worker.random.Below(kReportOneIn) == 0) After(client, Action::kStatus, worker.random.Unit());
  if (worker.random.Below(kReportOneIn) == 0) After(client, Action::kLogon, worker.random.Unit());
}

void Simulator::FetchSettings(Worker& worker, uint32_t client) {
  const Identity id = MakeIdentity(options_.seed, client);
  for (int fetch = 0; fetch < kSettingsFetches; ++fetch) {
    const std::string query = SettingsQuery(id, fetch);
    std::string body;
    const std::optional<Outcome> outcome = Send(worker, query, &body);
    if (!outcome) return;
    // The note names the request: "202/1".
    Record(worker, client, Kind::kSettings, *outcome, query.substr(10, 3) + "/" + query.substr(27, 1));
  }
}

void Simulator::FetchAlert(Worker& worker, uint32_t client) {
  std::string body;
  const std::optional<Outcome> outcome = Send(worker, AlertQuery(MakeIdentity(options_.seed, client)), &body);
  if (outcome) Record(worker, client, Kind::kAlert, *outcome);
}

void Simulator::ReportLog(Worker& worker, uint32_t client, bool burst) {
  const LogFamily family = burst ? LogFamily::kVirus : PickLogFamily(worker.random);
  std::string body;
  std::optional<Outcome> outcome =
      Send(worker, LogQuery(MakeIdentity(options_.seed, client), family, worker.random), &body);
  if (!outcome) return;
  // A log handed on is answered "1".
  outcome->malformed = !outcome->Failed() && body != "1";
  Record(worker, client, Kind::kLog, *outcome, kLogFamilyNames[static_cast<std::size_t>(family)]);
  if (!outcome->Failed()) worker.stats.logsAccepted[static_cast<std::size_t>(family)].fetch_add(1);
  if (burst) {
    if (burstLeft_.fetch_sub(1) == 1) burstEndUs_ = schedule_.NowUs();
  } else {
    After(client, Action::kLog, worker.random.Exponential(3600 / options_.logsPerHour));
  }
}

void Simulator::ReportStatus(Worker& worker, uint32_t client) {
  std::string body;
  const std::optional<Outcome> outcome =
      Send(worker, StatusQuery(MakeIdentity(options_.seed, client), worker.random), &body);
  if (outcome) Record(worker, client, Kind::kStatus, *outcome);
}

void Simulator::ReportLogon(Worker& worker, uint32_t client) {
  std::string body;
  const std::optional<Outcome> outcome = Send(worker, LogonQuery(MakeIdentity(options_.seed, client)), &body);
  if (outcome) Record(worker, client, Kind::kLogon, *outcome);
}

// The outbreak: every client reports its virus logs at once, round by
// round, as fast as the connections take them.
void Simulator::StartBurst() {
  std::vector<Due> burst;
  burst.reserve(clients_.size() * options_.outbreakLogs);
  const int64_t now = schedule_.NowUs();
  for (uint32_t round = 0; round < options_.outbreakLogs; ++round) {
    for (uint32_t client = 0; client < clients_.size(); ++client) burst.push_back({now, client, Action::kBurstLog});
  }
  burstLeft_ = burst.size();
  burstStartUs_ = now;
  schedule_.PushMany(burst);
}

}  // namespace agentsim
