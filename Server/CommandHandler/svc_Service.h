// The service: its database, signing keys and default sections, its
// uploads, a listener on each of the server's pipes, the log writer and the
// threads that delete old logs and upload leftovers.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "channel/pipe_Listener.h"
#include "cmd_Context.h"
#include "db_Database.h"
#include "platform/event.h"
#include "st_LogWriter.h"
#include "st_Periodic.h"
#include "st_Uploads.h"
#include "svc_Files.h"
#include "svc_Metrics.h"
#include "svc_Options.h"

namespace svc {

class Service {
 public:
  Service();
  ~Service();
  // Opens (making on first start) the data folder, the database and the
  // signing key, loads the default sections, and listens. False with a
  // message when any of it fails.
  bool Start(const Options& options, std::string* error);
  // Stops listening (a request in progress is finished first), then stores
  // every log still queued: a log whose send succeeded is in the database
  // when this returns.
  void Stop();

 private:
  std::unique_ptr<db::Database> database_;
  std::unique_ptr<st::Store> store_;
  std::unique_ptr<sig::Signer> signer_;
  std::unique_ptr<st::LogWriter> logs_;
  std::unique_ptr<st::Uploads> uploads_;
  std::unique_ptr<st::VdiCoordinator> vdi_;
  std::unique_ptr<st::Periodic> retention_;
  std::unique_ptr<st::Periodic> uploadSweep_;
  std::unique_ptr<ServiceMetrics> metrics_;  // null unless --metrics
  std::unique_ptr<cmd::Context> context_;
  plat::Event stop_;
  std::vector<std::unique_ptr<CPipeListener>> listeners_;
  InstanceLock instance_;
};

}  // namespace svc
