// isapi-host: serves an ISAPI extension over HTTP/1.1 on Linux.
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "host_Metrics.h"
#include "host_Options.h"
#include "host_Server.h"
#include "isapi/exchange.h"

namespace {

volatile sig_atomic_t g_stop = 0;
void OnSignal(int) { g_stop = 1; }

}  // namespace

int main(int argc, char** argv) {
  // The stop signals are blocked, in this thread and in every thread
  // started from here on (the extension's, the library's), but while the
  // main thread waits for them (sigsuspend): one arriving just before the
  // wait is not missed, and none lands on a thread nobody watches.
  struct sigaction action {};
  action.sa_handler = &OnSignal;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
  sigset_t stopSignals, waiting;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, &waiting);
  HostOptions options;
  std::string message;
  if (!ParseOptions(argc, argv, &options, &message)) {
    std::fprintf(stderr, "%s\n", message.c_str());
    return 2;
  }
  isapi::Module module;
  if (!module.Load(options.extension, &message)) {
    std::fprintf(stderr, "isapi-host: cannot load %s: %s\n", options.extension.c_str(), message.c_str());
    return 1;
  }
  HSE_VERSION_INFO version{};
  if (!module.GetExtensionVersion(&version)) {
    std::fprintf(stderr, "isapi-host: the extension refused to start (GetExtensionVersion)\n");
    return 1;
  }
  // Thousands of connections need as many descriptors: take what the
  // system allows this process.
  rlimit files{};
  if (getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < files.rlim_max) {
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
  }

  HostServer server(options, module);
  if (!server.Start(&message)) {
    std::fprintf(stderr, "isapi-host: %s\n", message.c_str());
    module.TerminateExtension(HSE_TERM_MUST_UNLOAD);
    return 1;
  }
  HostMetrics metrics(server, module);
  if (!options.metricsAddress.empty() && !metrics.Start(options.metricsAddress, options.metricsPort, &message)) {
    std::fprintf(stderr, "isapi-host: %s\n", message.c_str());
    server.Quiesce(0);
    module.TerminateExtension(HSE_TERM_MUST_UNLOAD);
    server.Stop();
    return 1;
  }
  std::printf("isapi-host: serving %s (%s) at http://%s:%u%s (%s mode)\n", options.extension.c_str(),
              version.lpszExtensionDesc, options.address.c_str(), options.port, options.path.c_str(),
              options.adapter ? "adapter" : "IIS");
  if (!options.metricsAddress.empty()) {
    std::printf("isapi-host: metrics at http://%s:%u/metrics, health at /healthz\n", options.metricsAddress.c_str(),
                metrics.port());
  }
  std::fflush(stdout);
  sigdelset(&waiting, SIGINT);
  sigdelset(&waiting, SIGTERM);
  while (!g_stop) sigsuspend(&waiting);
  std::printf("isapi-host: stopping\n");
  std::fflush(stdout);
  // Requests in flight end within the extension's own pipe waits; the
  // extension's stop joins its workers, and only then may the connections
  // whose control blocks they held go.
  metrics.Stop();  // no health check may start a round trip past this point
  server.Quiesce(options.stopGraceSeconds * 1000);
  module.TerminateExtension(HSE_TERM_MUST_UNLOAD);
  server.WaitIdle(2000);  // the last answers on their way out
  if (!server.Stop()) {
    std::fprintf(stderr, "isapi-host: %d requests never finished by the extension; exiting without closing them\n",
                 server.InFlight());
    std::_Exit(1);
  }
  return 0;
}
