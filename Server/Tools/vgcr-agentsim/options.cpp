#include "options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace agentsim {

namespace {

constexpr double kMaxSeconds = 30.0 * 24 * 3600;
// Without --duration a scenario still ends: this is its bound.
constexpr double kScenarioBound = 600;

bool ReadDouble(const char* text, double low, double high, double* out) {
  char* end = nullptr;
  errno = 0;
  const double value = std::strtod(text, &end);
  if (end == text || *end != '\0' || errno != 0 || !std::isfinite(value) || value < low || value > high) return false;
  *out = value;
  return true;
}

bool ReadUnsigned(const char* text, uint64_t low, uint64_t high, uint64_t* out) {
  if (*text < '0' || *text > '9') return false;
  char* end = nullptr;
  errno = 0;
  const unsigned long long value = std::strtoull(text, &end, 10);
  if (*end != '\0' || errno != 0 || value < low || value > high) return false;
  *out = value;
  return true;
}

bool ReadU32(const char* text, uint32_t low, uint32_t high, uint32_t* out) {
  uint64_t value = 0;
  if (!ReadUnsigned(text, low, high, &value)) return false;
  *out = static_cast<uint32_t>(value);
  return true;
}

// One option and its value; false with `error` set when it is not valid.
bool Apply(std::string_view name, const char* value, Options* o, std::string* error) {
  bool ok = true;
  if (name == "--url") {
    o->url = value;
  } else if (name == "--clients") {
    ok = ReadU32(value, 1, 100000, &o->clients);
  } else if (name == "--duration") {
    ok = ReadDouble(value, 0.001, kMaxSeconds, &o->duration);
  } else if (name == "--heartbeat") {
    ok = ReadDouble(value, 0.05, 86400, &o->heartbeat);
  } else if (name == "--jitter") {
    ok = ReadDouble(value, 0, 0.95, &o->jitter);
  } else if (name == "--logs-per-hour") {
    ok = ReadDouble(value, 0, 360000, &o->logsPerHour);
  } else if (name == "--rate") {
    ok = ReadDouble(value, 0, 10000000, &o->rate);
  } else if (name == "--connections") {
    ok = ReadU32(value, 1, 4096, &o->connections);
  } else if (name == "--seed") {
    ok = ReadUnsigned(value, 0, UINT64_MAX, &o->seed);
  } else if (name == "--register-within") {
    ok = ReadDouble(value, 0, 86400, &o->registerWithin);
  } else if (name == "--certificate") {
    o->certificate = value;
  } else if (name == "--scenario") {
    const std::string_view text = value;
    ok = text == "outbreak" || text == "storm";
    o->scenario = text == "outbreak" ? Scenario::kOutbreak : Scenario::kStorm;
  } else if (name == "--outbreak-logs") {
    ok = ReadU32(value, 1, 1000, &o->outbreakLogs);
  } else if (name == "--json") {
    o->json = value;
  } else if (name == "--trace") {
    o->trace = value;
  } else {
    *error = "unknown option " + std::string(name);
    return false;
  }
  if (!ok) *error = "bad value for " + std::string(name) + ": " + value;
  return ok;
}

bool Check(Options* o, std::string* error) {
  if (o->url.empty()) *error = "--url is required";
  else if (o->clients == 0) *error = "--clients is required";
  else if (o->duration == 0 && o->scenario == Scenario::kNone) *error = "--duration is required";
  else if (o->sign && o->certificate.empty()) *error = "--sign needs --certificate PEM";
  else if (!o->sign && !o->certificate.empty()) *error = "--certificate is used with --sign only";
  if (!error->empty()) return false;
  if (o->duration == 0) o->duration = kScenarioBound;
  if (o->registerWithin < 0) o->registerWithin = o->heartbeat;
  return true;
}

}  // namespace

Parsed ParseOptions(int argc, char** argv, Options* options, std::string* error) {
  for (int i = 1; i < argc; ++i) {
    std::string_view arg = argv[i];
    if (arg == "--help" || arg == "-h") return Parsed::kHelp;
    if (arg == "--sign") {
      options->sign = true;
      continue;
    }
    const std::size_t equals = arg.find('=');
    const char* value = nullptr;
    if (arg.rfind("--", 0) == 0 && equals != std::string_view::npos) {
      value = argv[i] + equals + 1;
      arg = arg.substr(0, equals);
    } else if (i + 1 < argc) {
      value = argv[++i];
    } else {
      *error = std::string(arg.rfind("--", 0) == 0 ? "missing value for " : "unexpected argument ") + argv[i];
      return Parsed::kBad;
    }
    if (!Apply(arg, value, options, error)) return Parsed::kBad;
  }
  return Check(options, error) ? Parsed::kRun : Parsed::kBad;
}

const char* Usage() {
  return "usage: vgcr-agentsim --url http://HOST:PORT/vigilcrest/cgi/isapiClient.dll --clients N\n"
         "                     --duration SECONDS [options]\n"
         "Simulates N client agents over HTTP: each registers (101), polls (207) and\n"
         "fetches its settings (202, 201) or alert message (204) when its heartbeat says\n"
         "they changed, reports logs (110), protection status (103) and logon users (112).\n"
         "  --clients N             1 to 100000\n"
         "  --duration SECONDS      length of the run (with --scenario: its bound, default 600)\n"
         "  --heartbeat SECONDS     heartbeat interval (60)\n"
         "  --jitter FRACTION       each interval varies by up to this fraction (0.2, at most 0.95)\n"
         "  --logs-per-hour L       logs per client per hour (2), mostly virus logs\n"
         "  --rate R                cap on requests per second overall (0: none)\n"
         "  --connections C         keep-alive HTTP/1.1 connections (64)\n"
         "  --seed S                makes the clients' uids and fields (1)\n"
         "  --register-within SEC   first registrations spread over SEC (the heartbeat interval)\n"
         "  --sign --certificate PEM  name the server's certificate (SA_ISR, SA_SN, SA_RN) and\n"
         "                          verify every reply's signature with it\n"
         "  --scenario outbreak     every client registers, then all report virus logs at once\n"
         "  --outbreak-logs K       virus logs each client reports in the outbreak (5)\n"
         "  --scenario storm        every client registers within --register-within, then polls once\n"
         "  --json FILE             the final summary as JSON\n"
         "  --trace FILE            one line per request: time, client, kind, status, ms, outcome\n"
         "Exit status: 0 the run completed (errors are reported), 1 the server could not be\n"
         "reached at all, 2 bad options.\n";
}

}  // namespace agentsim
