#include "svc_Options.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "db_Connection.h"
#include "metrics/endpoint.h"

#ifndef VGCR_DEFAULT_SECTIONS
#define VGCR_DEFAULT_SECTIONS "defaults"
#endif

namespace svc {

const char* Usage() {
  return "usage: vgcr-cmdhandler [--data DIR] [--database LOCATION [--database-password-file FILE]\n"
         "                       [--database-connections N]]\n"
         "                       [--defaults DIR] [--instances N] [--quiet]\n"
         "                       [--log-max-age DAYS] [--log-max-rows N] [--retention-interval SECONDS]\n"
         "                       [--upload-client-quota MIB] [--upload-total-quota MIB]\n"
         "                       [--vdi-slots N] [--vdi-task-timeout SECONDS] [--vdi-retry SECONDS]\n"
         "                       [--signing-key ecdsa|rsa] [--metrics ADDR:PORT]\n"
         "       vgcr-cmdhandler --print-identity [--data DIR]\n"
         "       vgcr-cmdhandler [--data DIR] COMMAND ARGUMENTS...\n"
         "\n"
         "The server's command-handler service: listens on the command pipes,\n"
         "keeps what clients report in DIR/cmdhandler.db (SQLite), or in a PostgreSQL\n"
         "database that several services share, and signs replies with the key in\n"
         "DIR (made on first start).\n"
         "\n"
         "  --data DIR                    data folder (default ./var)\n"
         "  --database LOCATION           keep the state on a PostgreSQL server instead of\n"
         "                                DIR/cmdhandler.db: postgresql://HOST:PORT/DB?user=U\n"
         "                                or \"host=H port=P dbname=DB user=U\"; no password\n"
         "                                in it (VGCR_DATABASE_PASSWORD, or the file below)\n"
         "  --database-password-file FILE the database password, on the first line of FILE\n"
         "                                (mode 0600)\n"
         "  --database-connections N      connections to the PostgreSQL server, 1 to 64;\n"
         "                                commands run side by side on them (default 4)\n"
         "  --defaults DIR                default settings sections, one SECTION.ini each\n"
         "                                (default: the folder shipped with the sources)\n"
         "  --instances N                 listeners on the command pipe, 1 to 63 (default 16)\n"
         "  --quiet                       no log line per command\n"
         "  --log-max-age DAYS            logs older than DAYS are deleted, 0 to 36500; 0\n"
         "                                keeps them whatever their age (default 90)\n"
         "  --log-max-rows N              only the newest N rows of each log table are kept,\n"
         "                                0 to 10^12; 0: no limit (default 10000000)\n"
         "  --retention-interval SECONDS  time between two deletion passes, 1 to 86400\n"
         "                                (default 60; the first pass runs soon after start)\n"
         "  --upload-client-quota MIB     what one client's uploads may take in DIR/uploads,\n"
         "                                0 to 1048576; 0: no limit (default 256)\n"
         "  --upload-total-quota MIB      what all uploads may take, 0 to 1048576; 0: no\n"
         "                                limit (default 4096)\n"
         "  --vdi-slots N                 VDI tasks that run at once in one pool, 1 to 10000\n"
         "                                (default 5)\n"
         "  --vdi-task-timeout SECONDS    a running VDI task silent this long is dead and its\n"
         "                                slot free; a queued desktop that stops asking for\n"
         "                                this long leaves the queue; 1 to 86400 (default 600)\n"
         "  --vdi-retry SECONDS           what a waiting desktop is told to wait, 1 to 3600\n"
         "                                (default 30)\n"
         "  --signing-key ecdsa|rsa       the key a data folder without one gets: ECDSA\n"
         "                                P-256 (the default) or RSA 2048; a folder that has\n"
         "                                a key keeps it\n"
         "  --metrics ADDR:PORT           serve /metrics (Prometheus text) and /healthz\n"
         "                                on a listener of their own (default: off)\n"
         "  --print-identity              print the signing certificate's SA_ISR and SA_SN\n"
         "                                query values and exit\n"
         "\n"
         "Operator commands (beside a running service, on the same database):\n"
         "  set-section UID SECTION FILE  the client's own SECTION from FILE (- reads\n"
         "                                standard input); the client fetches it after\n"
         "                                its next heartbeat\n"
         "  clear-section UID SECTION     the client gets the default SECTION again\n"
         "  set-default SECTION FILE      every client without its own SECTION gets FILE\n"
         "                                instead of the shipped default (kept across\n"
         "                                restarts); each fetches it after its next heartbeat\n"
         "  clear-default SECTION         the shipped default SECTION again, for every\n"
         "                                client without its own\n"
         "  update-order FILE             the update order every client gets (an empty\n"
         "                                file: none)\n"
         "  alert KIND FILE [UID]         an alert message of KIND for UID, or for every\n"
         "                                client\n"
         "  sections                      the sections and the config events they make\n"
         "                                pending\n"
         "  export-logs TABLE [--since TIME] [--until TIME] [--uid UID] [--csv]\n"
         "                                the log table's rows received from --since (on)\n"
         "                                to --until (before), oldest first, as JSON Lines\n"
         "                                or CSV; TIME is 'YYYY-MM-DD[ hh:mm:ss]' (UTC)\n"         "  clients [--seen-before TIME] [--release R] [--with-protection MASK]\n"
         "          [--without-protection MASK] [--json]\n"
         "                                the clients, the most recently seen first (times\n"
         "                                UTC); MASK: protection bits the status has (with)\n"
         "                                or lacks one of, or never reported (without);\n"
         "                                --json: JSON Lines\n"
         "  identity                      the signing certificate's SA_ISR and SA_SN (as\n"
         "                                --print-identity)\n"
         "  record-identity               DIR's signing certificate becomes the one every\n"
         "                                service on the database must sign with\n"
         "  client UID [--json]           one client: its registration, protection status,\n"
         "                                logon user, polling state, own sections, pending\n"
         "                                config records and its logs by kind\n"
         "\n"
         "Pipes live in $VGCR_PIPE_DIR; spill files and uploads are taken from\n"
         "$VGCR_LOCAL_PATH.\n"
         "SIGINT or SIGTERM stops it cleanly.\n";
}

namespace {

// A decimal number from min to max, nothing else.
bool ParseNumber(const char* text, int64_t min, int64_t max, int64_t* value) {
  if (*text < '0' || *text > '9') return false;
  errno = 0;
  char* end = nullptr;
  const long long n = std::strtoll(text, &end, 10);
  if (errno != 0 || *end != '\0' || n < min || n > max) return false;
  *value = n;
  return true;
}

struct NumberOption {
  const char* name;
  int64_t min, max;
  const char* range;  // for the message
  void (*store)(Options* options, int64_t value);
};

constexpr NumberOption kNumberOptions[] = {
    {"--database-connections", 1, 64, "a number from 1 to 64",
     [](Options* o, int64_t n) { o->databaseConnections = static_cast<int>(n); }},
    {"--instances", 1, 63, "a number from 1 to 63",
     [](Options* o, int64_t n) { o->instances = static_cast<uint32_t>(n); }},
    {"--log-max-age", 0, 36500, "a number of days from 0 (no limit) to 36500",
     [](Options* o, int64_t n) { o->logMaxAgeDays = static_cast<uint32_t>(n); }},
    {"--log-max-rows", 0, 1'000'000'000'000, "a number of rows from 0 (no limit) to 10^12",
     [](Options* o, int64_t n) { o->logMaxRows = n; }},
    {"--retention-interval", 1, 86400, "a number of seconds from 1 to 86400",
     [](Options* o, int64_t n) { o->retentionIntervalSeconds = static_cast<uint32_t>(n); }},
    {"--upload-client-quota", 0, 1 << 20, "a number of MiB from 0 (no limit) to 1048576",
     [](Options* o, int64_t n) { o->uploadClientQuotaMiB = static_cast<uint32_t>(n); }},
    {"--upload-total-quota", 0, 1 << 20, "a number of MiB from 0 (no limit) to 1048576",
     [](Options* o, int64_t n) { o->uploadTotalQuotaMiB = static_cast<uint32_t>(n); }},
    {"--vdi-slots", 1, 10000, "a number from 1 to 10000",
     [](Options* o, int64_t n) { o->vdiSlots = static_cast<uint32_t>(n); }},
    {"--vdi-task-timeout", 1, 86400, "a number of seconds from 1 to 86400",
     [](Options* o, int64_t n) { o->vdiTaskTimeoutSeconds = static_cast<uint32_t>(n); }},
    {"--vdi-retry", 1, 3600, "a number of seconds from 1 to 3600",
     [](Options* o, int64_t n) { o->vdiRetrySeconds = static_cast<uint32_t>(n); }},
};

const NumberOption* FindNumberOption(const char* arg) {
  for (const NumberOption& option : kNumberOptions) {
    if (!std::strcmp(arg, option.name)) return &option;
  }
  return nullptr;
}

// The options an operator command takes after its name, each with a value.
bool IsCommandOption(const char* arg) {
  for (const char* name :
       {"--since", "--until", "--uid", "--seen-before", "--release", "--with-protection", "--without-protection"}) {
    if (!std::strcmp(arg, name)) return true;
  }
  return false;
}

}  // namespace

std::string CommandUsage(const std::string& name) {
  std::string usage;
  bool inside = false;
  const std::string text = Usage();
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find('\n', at);
    const std::string line = text.substr(at, end - at);
    at = end == std::string::npos ? text.size() : end + 1;
    if (line.rfind("  " + name + " ", 0) == 0 || line == "  " + name) {
      inside = true;
    } else if (inside && line.rfind("   ", 0) != 0) {
      break;
    }
    if (inside) usage += line + "\n";
  }
  return usage.empty() ? "" : "usage: vgcr-cmdhandler [--data DIR]\n" + usage;
}

bool ParseOptions(int argc, char** argv, Options* options, std::string* error) {
  options->defaultsFolder = VGCR_DEFAULT_SECTIONS;
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    auto value = [&](const char** out) {
      if (i + 1 >= argc) {
        *error = std::string(arg) + " needs a value";
        return false;
      }
      *out = argv[++i];
      return true;
    };
    const char* text = nullptr;
    if (!std::strcmp(arg, "--data")) {
      if (!value(&text)) return false;
      options->dataFolder = text;
    } else if (!std::strcmp(arg, "--database")) {
      if (!value(&text)) return false;
      if (!db::IsPostgresLocation(text)) {
        *error = "--database takes a PostgreSQL location (postgresql://... or \"host=... dbname=...\")";
        return false;
      }
      options->database = text;
    } else if (!std::strcmp(arg, "--database-password-file")) {
      if (!value(&text)) return false;
      options->databasePasswordFile = text;
    } else if (!std::strcmp(arg, "--defaults")) {
      if (!value(&text)) return false;
      options->defaultsFolder = text;
    } else if (!std::strcmp(arg, "--signing-key")) {
      if (!value(&text)) return false;
      if (std::strcmp(text, "ecdsa") != 0 && std::strcmp(text, "rsa") != 0) {
        *error = "--signing-key takes ecdsa or rsa";
        return false;
      }
      options->signingKey = text;
    } else if (!std::strcmp(arg, "--metrics")) {
      if (!value(&text)) return false;
      if (!metrics::ParseAddress(text, &options->metricsAddress, &options->metricsPort)) {
        *error = "--metrics takes ADDR:PORT, for example 127.0.0.1:9465";
        return false;
      }
    } else if (const NumberOption* option = FindNumberOption(arg)) {
      int64_t n = 0;
      if (!value(&text)) return false;
      if (!ParseNumber(text, option->min, option->max, &n)) {
        *error = std::string(option->name) + " takes " + option->range;
        return false;
      }
      option->store(options, n);
    } else if (!options->command.empty() && IsCommandOption(arg)) {
      if (!value(&text)) return false;
      options->command.emplace_back(arg);
      options->command.emplace_back(text);
    } else if (!options->command.empty() && (!std::strcmp(arg, "--json") || !std::strcmp(arg, "--csv"))) {
      options->command.emplace_back(arg);
    } else if (!std::strcmp(arg, "--quiet")) {
      options->quiet = true;
    } else if (!std::strcmp(arg, "--print-identity")) {
      options->printIdentity = true;
    } else if (!std::strcmp(arg, "--help") || !std::strcmp(arg, "-h")) {
      options->help = true;
    } else if (arg[0] != '-' || (arg[1] == '\0' && !options->command.empty())) {
      options->command.emplace_back(arg);
    } else {
      *error = std::string("unknown option ") + arg;
      return false;
    }
  }
  return true;
}

}  // namespace svc
