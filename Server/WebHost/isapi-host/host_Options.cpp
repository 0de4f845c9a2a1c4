#include "host_Options.h"

#include <cstdlib>
#include <cstring>

#include "metrics/endpoint.h"

std::string Usage() {
  return "usage: isapi-host --extension PATH --listen ADDR:PORT [--adapter]\n"
         "                  [--max-body BYTES] [--max-request-line BYTES] [--timeout SECONDS]\n"
         "                  [--threads N] [--adapter-workers N] [--path URL-PATH]\n"
         "                  [--max-connections N] [--max-per-address N] [--stop-grace SECONDS]\n"
         "                  [--request-deadline SECONDS] [--min-body-rate BYTES]\n"
         "                  [--metrics ADDR:PORT]\n"
         "Serves an ISAPI extension at /vigilcrest/cgi/isapiClient.dll (or --path).\n"
         "IIS mode by default: requests complete asynchronously; --adapter calls the\n"
         "extension synchronously without path-info, as an Apache adapter does.\n"
         "Defaults: --max-body 30000000, --max-request-line 65536, --timeout 30 (idle\n"
         "seconds), --threads 4, --adapter-workers 64, --max-connections 10000,\n"
         "--max-per-address 512 (many agents may share one address behind NAT); a\n"
         "connection over either limit is answered 503 with a Retry-After and closed.\n"
         "A request must be whole within --request-deadline seconds (20) plus one\n"
         "second per --min-body-rate bytes (8192) of its body, however it trickles;\n"
         "bodies over 49152 bytes are streamed to the extension, not held.\n"
         "On SIGINT or SIGTERM it stops accepting, gives requests in\n"
         "flight --stop-grace seconds (30), unloads the extension, which waits for its\n"
         "workers (each request is bounded by its own pipe waits), and only then closes\n"
         "the connections.\n"
         "--metrics serves /metrics (Prometheus text: the extension's counters and the\n"
         "host's connections) and /healthz (200 when a round trip to the command-handler\n"
         "service succeeds within 2 s, else 503 and why) on a listener of its own; off\n"
         "by default.\n";
}

namespace {

// The options that take one number, with its bounds and its place.
struct CountOption {
  const char* name;
  const char* what;
  uint64_t max;
  uint32_t HostOptions::*field;
};

constexpr CountOption kCountOptions[] = {
    {"--max-request-line", "a size", 1u << 20, &HostOptions::maxRequestLine},
    {"--timeout", "seconds", 86400, &HostOptions::timeoutSeconds},
    {"--threads", "a count", 256, &HostOptions::threads},
    {"--adapter-workers", "a count", 1024, &HostOptions::adapterWorkers},
    {"--request-deadline", "seconds", 86400, &HostOptions::deadlineSeconds},
    {"--min-body-rate", "bytes per second", 1u << 30, &HostOptions::minBodyRate},
    {"--max-connections", "a count", 1000000, &HostOptions::maxConnections},
    {"--max-per-address", "a count", 1000000, &HostOptions::maxPerAddress},
    {"--stop-grace", "seconds", 3600, &HostOptions::stopGraceSeconds},
};

const CountOption* FindCountOption(const char* arg) {
  for (const CountOption& option : kCountOptions) {
    if (std::strcmp(arg, option.name) == 0) return &option;
  }
  return nullptr;
}

bool Number(const char* text, uint64_t max, uint64_t* out) {
  char* end = nullptr;
  unsigned long long value = std::strtoull(text, &end, 10);
  if (end == text || *end != '\0' || value == 0 || value > max) return false;
  *out = value;
  return true;
}

}  // namespace

bool ParseOptions(int argc, char** argv, HostOptions* o, std::string* message) {
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
    uint64_t n = 0;
    auto need = [&](const char* what) {
      if (value) return true;
      *message = std::string(arg) + " needs " + what;
      return false;
    };
    if (const CountOption* option = FindCountOption(arg)) {
      if (!need(option->what) || !Number(value, option->max, &n)) {
        *message = std::string("bad ") + option->name;
        return false;
      }
      o->*(option->field) = static_cast<uint32_t>(n);
      ++i;
    } else if (std::strcmp(arg, "--adapter") == 0) {
      o->adapter = true;
    } else if (std::strcmp(arg, "--extension") == 0) {
      if (!need("a path")) return false;
      o->extension = value;
      ++i;
    } else if (std::strcmp(arg, "--listen") == 0) {
      if (!need("ADDR:PORT")) return false;
      if (!metrics::ParseAddress(value, &o->address, &o->port)) {
        *message = "--listen wants ADDR:PORT, for example 127.0.0.1:8080";
        return false;
      }
      ++i;
    } else if (std::strcmp(arg, "--metrics") == 0) {
      if (!need("ADDR:PORT")) return false;
      if (!metrics::ParseAddress(value, &o->metricsAddress, &o->metricsPort)) {
        *message = "--metrics wants ADDR:PORT, for example 127.0.0.1:9464";
        return false;
      }
      ++i;
    } else if (std::strcmp(arg, "--max-body") == 0) {
      // ISAPI counts a body in 32 bits, and 0xFFFFFFFF means "unknown".
      if (!need("a size") || !Number(value, 0xFFFFFFFEu, &o->maxBody)) return *message = "bad --max-body", false;
      ++i;
    } else if (std::strcmp(arg, "--path") == 0) {
      if (!need("a URL path")) return false;
      o->path = value;
      ++i;
    } else if (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0) {
      *message = Usage();
      return false;
    } else {
      *message = std::string("unknown option ") + arg + "\n" + Usage();
      return false;
    }
  }
  if (o->extension.empty()) {
    *message = "--extension is required\n" + Usage();
    return false;
  }
  return true;
}
