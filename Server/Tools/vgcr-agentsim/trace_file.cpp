#include "trace_file.h"

#include <cerrno>
#include <cstring>

namespace agentsim {

namespace {

std::string OutcomeWord(const Outcome& o) {
  if (o.transport) return "transport";
  if (o.malformed) return "malformed";
  if (o.code != 0) return "code=" + std::to_string(o.code);
  if (o.status != 200) return "http";
  return o.badSignature ? "badsig" : "ok";
}

}  // namespace

TraceFile::~TraceFile() {
  if (file_) std::fclose(file_);
}

bool TraceFile::Open(const std::string& path, std::string* error) {
  file_ = std::fopen(path.c_str(), "w");
  if (!file_) {
    *error = "cannot write " + path + ": " + std::strerror(errno);
    return false;
  }
  // Whole lines, so that a reader during the run sees no torn line.
  std::setvbuf(file_, nullptr, _IOLBF, 1024);
  return true;
}

void TraceFile::Write(int64_t atMs, uint32_t client, Kind kind, const Outcome& outcome, const std::string& note) {
  if (!file_) return;
  std::lock_guard<std::mutex> lock(mutex_);
  std::fprintf(file_, "%lld %u %s %d %.3f %s%s%s\n", static_cast<long long>(atMs), static_cast<unsigned>(client),
               KindName(kind), outcome.status, outcome.ms, OutcomeWord(outcome).c_str(), note.empty() ? "" : " ",
               note.c_str());
}

}  // namespace agentsim
