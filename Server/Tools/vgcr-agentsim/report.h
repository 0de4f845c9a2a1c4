// The simulator's final report: a table on standard output, and with --json
// the same as a JSON object.
#pragma once

#include <string>

#include "options.h"
#include "simulator.h"
#include "stats.h"

namespace agentsim {

void PrintTable(const Options& options, const Summary& summary, const RunFacts& facts);
bool WriteJson(const std::string& path, const Options& options, const Summary& summary, const RunFacts& facts,
               std::string* error);

}  // namespace agentsim
