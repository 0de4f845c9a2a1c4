// Fuzz target: a request as it reaches the command-handler service off one
// of its pipes, run against a database in memory. The first byte picks the
// pipe. Whatever arrives must end as a log line, never as a crash.
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "channel/channel_Settings.h"
#include "cmd_Dispatch.h"
#include "db_Schema.h"
#include "svc_Log.h"

namespace {

struct World {
  std::unique_ptr<db::Database> database;
  std::unique_ptr<st::Store> store;
  std::unique_ptr<sig::Signer> signer;
  std::unique_ptr<st::LogWriter> logs;
  std::string dataFolder;
  std::unique_ptr<st::Uploads> uploads;
  std::unique_ptr<st::VdiCoordinator> vdi;
  std::unique_ptr<cmd::Context> context;

  World() {
    svc::SetQuiet(true);
    std::string error;
    database = db::Database::Open(":memory:", &error);
    if (!database || !db::CreateSchema(*database, &error)) std::abort();
    store = std::make_unique<st::Store>(*database);
    store->LoadDefaults({{"MS_CFG", "[Manual_Scan]\r\n"}});
    char folder[] = "/tmp/vgcr-fuzz-XXXXXX";
    if (!::mkdtemp(folder)) std::abort();
    signer = sig::Signer::Open(folder, sig::KeyKind::kEcdsaP256, &error);
    if (!signer) std::abort();
    std::filesystem::remove_all(folder);  // the keys stay loaded
    logs = std::make_unique<st::LogWriter>(*database);
    logs->Start();
    // Uploads are taken from a server folder that stays empty, into a data
    // folder of their own: every announcement runs its checks and is refused.
    std::filesystem::create_directories("/tmp/vgcr-fuzz-server");
    ::setenv("VGCR_LOCAL_PATH", "/tmp/vgcr-fuzz-server", 1);
    char data[] = "/tmp/vgcr-fuzz-data-XXXXXX";
    if (!::mkdtemp(data)) std::abort();
    dataFolder = data;
    uploads = st::Uploads::Open(*database, dataFolder, st::UploadQuotas{}, &error);
    if (!uploads) std::abort();
    vdi = std::make_unique<st::VdiCoordinator>(*database, st::VdiLimits{});
    context = std::make_unique<cmd::Context>(cmd::Context{*store, *signer, *logs, uploads.get(), vdi.get()});
  }
  ~World() {
    uploads.reset();
    std::error_code ignored;
    std::filesystem::remove_all(dataFolder, ignored);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static World world;
  if (size < 1 || size > 1u << 20) return 0;
  static const char16_t* const kPipes[] = {kCommandHandlerPipe, kCommandHandler2Pipe, kServerNotifyPipe,
                                           kThreatLogPipe};
  PipeRequest request;
  request.bytes.assign(data + 1, data + size);
  cmd::Dispatch(*world.context, kPipes[data[0] % 4], std::move(request));
  return 0;
}
