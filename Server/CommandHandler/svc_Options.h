// The command line of vgcr-cmdhandler.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace svc {

struct Options {
  std::string dataFolder = "var";          // the database and the signing key
  // A PostgreSQL server shared with other services (a postgresql:// URI or
  // a libpq connection string); empty: DIR/cmdhandler.db.
  std::string database;
  std::string databasePasswordFile;        // its password's file; else VGCR_DATABASE_PASSWORD
  int databaseConnections = 4;             // to that server: commands run side by side on them
  std::string defaultsFolder;              // the default settings sections
  uint32_t instances = 16;                 // listeners on the command pipe
  bool quiet = false;                      // no line per command
  uint32_t logMaxAgeDays = 90;             // logs older are deleted; 0: kept whatever their age
  int64_t logMaxRows = 10'000'000;         // per log table; 0: no limit
  uint32_t retentionIntervalSeconds = 60;  // between two retention passes
  uint32_t uploadClientQuotaMiB = 256;     // what one client's uploads may take; 0: no limit
  uint32_t uploadTotalQuotaMiB = 4096;     // what all uploads may take; 0: no limit
  uint32_t vdiSlots = 5;                   // VDI tasks running at once per pool
  uint32_t vdiTaskTimeoutSeconds = 600;    // a silent running task dies; a silent queued desktop goes
  uint32_t vdiRetrySeconds = 30;           // what a waiting desktop is told
  // The kind of key a new data folder gets; a folder that has a key keeps it.
  std::string signingKey = "ecdsa";        // "ecdsa" (P-256) or "rsa" (2048 bits)
  // The metrics and health listener (ADDR:PORT); off while empty.
  std::string metricsAddress;
  uint16_t metricsPort = 0;
  bool printIdentity = false;              // print SA_ISR and SA_SN, then exit
  bool help = false;
  // An operator command and its arguments (svc_Admin), when one is given.
  std::vector<std::string> command;
};

// False with a message for a bad command line.
bool ParseOptions(int argc, char** argv, Options* options, std::string* error);
const char* Usage();
// The lines of Usage() about one operator command; empty for none.
std::string CommandUsage(const std::string& name);

}  // namespace svc
