// The log-server client: hands one decorated trace line to the server's log
// server as a "LOG_WRITE" request on the pipe "Log_ServerNamePipe".
#pragma once

#include <cstdint>

#include "platform/process.h"

inline constexpr char16_t kLogServerPipeName[] = u"Log_ServerNamePipe";

struct LogWriteRequest {
  plat::LocalTime time;
  uint32_t processId;
  uint32_t threadId;
  int level;
  const char16_t* source;
  int line;
  const char16_t* text;  // the decorated message
};

// Builds and sends the request. Failures are reported through the quiet
// trace form only; the first failure to find the log server notes once that
// it must be started for the debug log to work.
bool logcl_WriteLog(const LogWriteRequest& request);

// Forgets that the notice was shown (tests).
void logcl_ResetNotice();
