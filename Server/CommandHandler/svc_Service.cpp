#include "svc_Service.h"

#include <sys/stat.h>

#include <algorithm>

#include "channel/channel_Settings.h"
#include "cmd_Dispatch.h"
#include "cmd_Inbound.h"
#include "db_Schema.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "st_Defaults.h"
#include "st_Retention.h"
#include "svc_Database.h"
#include "svc_Files.h"
#include "svc_Log.h"

namespace svc {

Service::Service() = default;
Service::~Service() { Stop(); }

bool Service::Start(const Options& options, std::string* error) {
  SetQuiet(options.quiet);
  // Whatever the service creates (the database, its journal, the key) is
  // its own alone unless it says otherwise.
  ::umask(077);
  if (!instance_.Acquire(error)) return false;
  if (!PrepareDataFolder(options.dataFolder, error)) return false;
  database_ = OpenDatabase(options, error);
  if (!database_) return false;
  store_ = std::make_unique<st::Store>(*database_);
  signer_ = sig::Signer::Open(options.dataFolder, sig::KeyKindNamed(options.signingKey), error);
  if (!signer_ || !KeepPrivate(options.dataFolder + "/signing-key.pem", 0600, error)) return false;
  // A file database is this service's alone: a new certificate there is
  // simply the one recorded.
  if (!CheckSigningIdentity(*database_, *signer_, database_->backend() == db::Backend::kSqlite, error)) return false;
  std::map<std::string, std::string> sections;
  if (!st::ReadDefaultSections(options.defaultsFolder, &sections, error)) return false;
  if (!store_->LoadDefaults(sections)) {
    *error = "cannot store the default sections: " + database_->LastError();
    return false;
  }
  const st::UploadQuotas quotas{int64_t{options.uploadClientQuotaMiB} << 20,
                                int64_t{options.uploadTotalQuotaMiB} << 20};
  uploads_ = st::Uploads::Open(*database_, options.dataFolder, quotas, error);
  if (!uploads_) return false;
  logs_ = std::make_unique<st::LogWriter>(*database_);
  logs_->Start();
  vdi_ = std::make_unique<st::VdiCoordinator>(
      *database_, st::VdiLimits{options.vdiSlots, std::chrono::seconds(options.vdiTaskTimeoutSeconds),
                                std::chrono::seconds(options.vdiRetrySeconds)});
  if (!options.metricsAddress.empty()) metrics_ = std::make_unique<ServiceMetrics>(options, *database_, *signer_);
  context_ = std::make_unique<cmd::Context>(cmd::Context{*store_, *signer_, *logs_, uploads_.get(), vdi_.get(),
                                                         metrics_ ? &metrics_->commands() : nullptr});
  Note("database " + DatabaseLocation(options) + ", " + std::to_string(sections.size()) + " default sections, signing certificate " +
       signer_->Serial());

  if (!stop_.Create(nullptr, false)) {
    *error = "cannot create the stop event";
    return false;
  }
  const uint32_t signers = std::max<uint32_t>(2, options.instances / 2);
  const std::pair<const char16_t*, uint32_t> pipes[] = {
      {kCommandHandlerPipe, options.instances}, {kCommandHandler2Pipe, signers},
      {kServerNotifyPipe, 2}, {kThreatLogPipe, 2}};
  for (const auto& [name, instances] : pipes) {
    std::u16string pipe = name;
    auto listener = std::make_unique<CPipeListener>(
        pipe, instances, [this, pipe](PipeRequest&& request) { cmd::Dispatch(*context_, pipe, std::move(request)); });
    if (!listener->Start(stop_)) {
      *error = "cannot listen on the pipe \"" + plat::ToUtf8(pipe) + "\" (error " + std::to_string(plat::LastError()) +
               "); is another service running?";
      listeners_.push_back(std::move(listener));
      Stop();
      return false;
    }
    listeners_.push_back(std::move(listener));
  }
  if (metrics_) {
    if (!metrics_->Start(options.metricsAddress, options.metricsPort, &listeners_, error)) {
      Stop();
      return false;
    }
    Note("metrics at http://" + options.metricsAddress + ":" + std::to_string(metrics_->port()) +
         "/metrics, health at /healthz");
  }
  const st::RetentionLimits limits{options.logMaxAgeDays, options.logMaxRows};
  retention_.reset();
  if (limits.maxAgeDays != 0 || limits.maxRows != 0) {
    const std::chrono::seconds interval(options.retentionIntervalSeconds);
    retention_ = std::make_unique<st::Periodic>(
        std::min(interval, st::kFirstRetentionPass), interval,
        [database = database_.get(), limits, interval](const std::function<bool()>& stopping) {
          const bool ok = st::RunRetention(*database, limits, stopping,
                                           [](const std::string& line) { Note("retention: " + line); });
          if (!ok) Note("retention: the database failed; trying again in " + std::to_string(interval.count()) + " s");
        });
    retention_->Start();
  }
  // At start, for what a stopped service or an announcement that never came
  // left behind, then every ten minutes.
  uploadSweep_ = std::make_unique<st::Periodic>(
      std::chrono::milliseconds(0), st::kUploadSweepInterval, [uploads = uploads_.get()](const std::function<bool()>&) {
        uploads->Sweep(st::kTempUploadAge, [](const std::string& line) { Note("uploads: " + line); });
      });
  uploadSweep_->Start();
  return true;
}

void Service::Stop() {
  if (metrics_) metrics_->Stop();
  const bool running = !listeners_.empty();
  if (running) {
    stop_.Set();
    for (auto& listener : listeners_) {
      listener->Join();
      if (listener->LateClients() > 0) {
        Note("pipe " + cmd::ShortPipeName(listener->Name()) + ": " + std::to_string(listener->LateClients()) +
             " senders dropped for not sending their request in time");
      }
      if (listener->EmptyClients() > 0) {
        Note("pipe " + cmd::ShortPipeName(listener->Name()) + ": " + std::to_string(listener->EmptyClients()) +
             " senders went without sending a byte (the last with error " +
             std::to_string(listener->LastEmptyError()) + ")");
      }
    }
    listeners_.clear();
  }
  if (retention_) retention_->Stop();
  if (uploadSweep_) uploadSweep_->Stop();
  // Every sender has been served: what is queued is all there will be.
  if (logs_) logs_->Stop();
  if (running && database_) {
    const db::Database::GroupStats groups = database_->Groups();
    if (groups.commits > 0) {
      Note("database: " + std::to_string(groups.commands) + " commands shared " + std::to_string(groups.commits) +
           " commits");
    }
  }
  instance_.Release();
}

}  // namespace svc
