// --trace FILE: one line per request, in the order the replies came,
//   T_MS CLIENT KIND STATUS MS OUTCOME [NOTE]
// T_MS the time since the start, STATUS the HTTP status (0: no reply),
// OUTCOME "ok", "code=N", "malformed", "transport" or "badsig" (a reply
// otherwise good whose signature failed), NOTE what the reply told the
// client ("seq=S msg=M" for a heartbeat, "uid=..." for a registration).
#pragma once

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

#include "kinds.h"
#include "stats.h"

namespace agentsim {

class TraceFile {
 public:
  TraceFile() = default;
  ~TraceFile();
  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;

  bool Open(const std::string& path, std::string* error);
  bool open() const { return file_ != nullptr; }
  void Write(int64_t atMs, uint32_t client, Kind kind, const Outcome& outcome, const std::string& note);

 private:
  std::mutex mutex_;
  std::FILE* file_ = nullptr;
};

}  // namespace agentsim
