// The log-server client: hands one decorated trace line to the server's log
// server as a "LOG_WRITE" request on the pipe "Log_ServerNamePipe".
#pragma once

#include <cstdint>

#include "platform/process.h"

inline constexpr char16_t kLogServerPipeName[] = u"Log_ServerNamePipe";

// A trace call runs on whatever thread traces, a request's worker among
// them, so the log server gets only a few milliseconds of it: this long, in
// all, for a busy pipe to free an instance, and this long for it to take
// the whole line. A line it does not take in time is dropped.
inline constexpr uint32_t kLogServerBusyWaitMs = 5;
inline constexpr uint32_t kLogServerSendMs = 5;

struct LogWriteRequest {
  plat::LocalTime time;
  uint32_t processId;
  uint32_t threadId;
  int level;
  const char16_t* source;
  int line;
  const char16_t* text;  // the decorated message
};

enum class LogWriteResult {
  kWritten,
  kFailed,  // no log server, or it failed the request
  kGaveUp,  // the log server was busy or slow past the bounds above
};

// Builds and sends the request. Failures are reported through the quiet
// trace form only; the first failure to find the log server notes once that
// it must be started for the debug log to work.
LogWriteResult logcl_WriteLog(const LogWriteRequest& request);

// Forgets that the notice was shown (tests).
void logcl_ResetNotice();
// Replaces the bounds above (tests: a line that must arrive whatever the
// machine's load is given more time).
void logcl_SetBounds(uint32_t busyWaitMs, uint32_t sendMs);
