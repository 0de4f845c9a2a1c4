#include "svc_Options.h"

#include <cstdlib>
#include <cstring>

#ifndef VGCR_DEFAULT_SECTIONS
#define VGCR_DEFAULT_SECTIONS "defaults"
#endif

namespace svc {

const char* Usage() {
  return "usage: vgcr-cmdhandler [--data DIR] [--defaults DIR] [--instances N] [--quiet]\n"
         "       vgcr-cmdhandler --print-identity [--data DIR]\n"
         "       vgcr-cmdhandler [--data DIR] COMMAND ARGUMENTS...\n"
         "\n"
         "The server's command-handler service: listens on the command pipes,\n"
         "keeps what clients report in DIR/cmdhandler.db (SQLite) and signs\n"
         "replies with the key in DIR (made on first start).\n"
         "\n"
         "  --data DIR        data folder (default ./var)\n"
         "  --defaults DIR    default settings sections, one SECTION.ini each\n"
         "                    (default: the folder shipped with the sources)\n"
         "  --instances N     listeners on the command pipe, 1 to 63 (default 16)\n"
         "  --quiet           no log line per command\n"
         "  --print-identity  print the signing certificate's SA_ISR and SA_SN\n"
         "                    query values and exit\n"
         "\n"
         "Operator commands (beside a running service, on the same database):\n"
         "  set-section UID SECTION FILE  the client's own SECTION from FILE (- reads\n"
         "                                standard input); the client fetches it after\n"
         "                                its next heartbeat\n"
         "  clear-section UID SECTION     the client gets the default SECTION again\n"
         "  update-order FILE             the update order every client gets (an empty\n"
         "                                file: none)\n"
         "  alert KIND FILE [UID]         an alert message of KIND for UID, or for every\n"
         "                                client\n"
         "  sections                      the sections and the config events they make\n"
         "                                pending\n"
         "\n"
         "Pipes live in $VGCR_PIPE_DIR; spill files are read from $VGCR_LOCAL_PATH.\n"
         "SIGINT or SIGTERM stops it cleanly.\n";
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
    } else if (!std::strcmp(arg, "--defaults")) {
      if (!value(&text)) return false;
      options->defaultsFolder = text;
    } else if (!std::strcmp(arg, "--instances")) {
      if (!value(&text)) return false;
      char* end = nullptr;
      const long n = std::strtol(text, &end, 10);
      if (*end || n < 1 || n > 63) {
        *error = "--instances takes a number from 1 to 63";
        return false;
      }
      options->instances = static_cast<uint32_t>(n);
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
