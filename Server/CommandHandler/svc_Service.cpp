#include "svc_Service.h"

#include <sys/stat.h>


#include "channel/channel_Settings.h"
#include "cmd_Dispatch.h"
#include "db_Schema.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "st_Defaults.h"
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
  const std::string path = options.dataFolder + "/cmdhandler.db";
  for (const char* suffix : {"", "-wal", "-shm"}) {
    if (!KeepPrivate(path + suffix, 0600, error)) return false;
  }
  database_ = db::Database::Open(path, error);
  if (!database_ || !db::CreateSchema(*database_, error)) return false;
  store_ = std::make_unique<st::Store>(*database_);
  std::map<std::string, std::string> sections;
  if (!st::ReadDefaultSections(options.defaultsFolder, &sections, error)) return false;
  if (!store_->LoadDefaults(sections)) {
    *error = "cannot store the default sections: " + database_->LastError();
    return false;
  }
  signer_ = sig::Signer::Open(options.dataFolder, error);
  if (!signer_ || !KeepPrivate(options.dataFolder + "/signing-key.pem", 0600, error)) return false;
  logs_ = std::make_unique<st::LogWriter>(*database_);
  logs_->Start();
  context_ = std::make_unique<cmd::Context>(cmd::Context{*store_, *signer_, *logs_});
  Note("database " + path + ", " + std::to_string(sections.size()) + " default sections, signing certificate " +
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
  retention_ = std::make_unique<st::Retention>(
      *database_, st::RetentionLimits{options.logMaxAgeDays, options.logMaxRows},
      std::chrono::seconds(options.retentionIntervalSeconds));
  retention_->Start();
  return true;
}

void Service::Stop() {
  if (!listeners_.empty()) {
    stop_.Set();
    for (auto& listener : listeners_) listener->Join();
    listeners_.clear();
  }
  if (retention_) retention_->Stop();
  // Every sender has been served: what is queued is all there will be.
  if (logs_) logs_->Stop();
  instance_.Release();
}

}  // namespace svc
