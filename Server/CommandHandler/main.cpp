// vgcr-cmdhandler: the reference command-handler service.
#include <signal.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "sig_Signer.h"
#include "svc_Admin.h"
#include "svc_Files.h"
#include "svc_Log.h"
#include "svc_Options.h"
#include "svc_Service.h"

namespace {

int PrintIdentity(const svc::Options& options) {
  std::string error;
  if (!svc::PrepareDataFolder(options.dataFolder, &error)) {
    std::fprintf(stderr, "vgcr-cmdhandler: %s\n", error.c_str());
    return 1;
  }
  auto signer = sig::Signer::Open(options.dataFolder, sig::KeyKindNamed(options.signingKey), &error);
  if (!signer) {
    std::fprintf(stderr, "vgcr-cmdhandler: %s\n", error.c_str());
    return 1;
  }
  std::printf("SA_ISR=%s\nSA_SN=%s\ncertificate=%s\n", signer->Issuer().c_str(), signer->Serial().c_str(),
              signer->CertificatePath().c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  ::umask(077);  // the database, its journal and the key are the service's alone
  svc::Options options;
  std::string error;
  if (!svc::ParseOptions(argc, argv, &options, &error)) {
    std::fprintf(stderr, "vgcr-cmdhandler: %s\n%s", error.c_str(), svc::Usage());
    return 2;
  }
  if (options.help) {
    const std::string usage = options.command.empty() ? "" : svc::CommandUsage(options.command[0]);
    std::fputs(usage.empty() ? svc::Usage() : usage.c_str(), stdout);
    return 0;
  }
  if (options.printIdentity) return PrintIdentity(options);
  if (options.command.size() == 1 && options.command[0] == "identity") return PrintIdentity(options);
  if (!options.command.empty()) return svc::RunAdmin(options);

  // The signals are taken by sigwait below; every thread started from here
  // on inherits the mask. A reply pipe that closes under a write is an
  // error result, not a signal.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  svc::Service service;
  if (!service.Start(options, &error)) {
    svc::Note(error);
    return 1;
  }
  svc::Note("listening; SIGINT or SIGTERM stops");
  int signalNumber = 0;
  sigwait(&stopSignals, &signalNumber);
  svc::Note(std::string("stopping on ") + (signalNumber == SIGINT ? "SIGINT" : "SIGTERM"));
  service.Stop();
  svc::Note("stopped");
  return 0;
}
