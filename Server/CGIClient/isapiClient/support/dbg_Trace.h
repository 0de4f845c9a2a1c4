// The debug trace facility: every component reports what it does here, with
// a level, its source unit's name, the line and a printf-style message.
//
// A trace call decorates the message with "[module][process]", writes a
// local line when a local log is open ($VGCR_TRACE_LOG names a file, or "-"
// for standard error), and hands the line to the server's log server over
// the "Log_ServerNamePipe" pipe; when that is not done and a trace library
// is loaded, the library gets it instead. Tracing never changes the outcome
// of the operation that traces, allocates nothing per call, and waits on a
// busy or slow log server for a few milliseconds at most: past that the
// line is dropped for the log server and counted (DroppedLines).
#pragma once

#include <cstddef>
#include <cstdint>

#include "str_Format.h"

namespace dbg {

// The decorated message's buffer, terminator included.
inline constexpr std::size_t kTraceBufferChars = 4096;

// path1 is handed to the trace library's initialisation, path2 names that
// library; both are cut to 260 characters and the module name to 1024. With
// noLibrary set no library is loaded. Reads $VGCR_TRACE_LOG.
void Initialize(const char* path1, const char* path2, const char* moduleName, int noLibrary);
// Closes the local log and unloads the trace library.
void Shutdown();

void TraceArgs(int level, const char16_t* source, int line, const char16_t* format,
               const fmt16::Arg* args, std::size_t count);
void TraceArgsA(int level, const char16_t* source, int line, const char* format,
                const fmt16::Arg* args, std::size_t count);
void TraceQuietArgs(int level, const char16_t* source, int line, const char16_t* format,
                    const fmt16::Arg* args, std::size_t count);

template <typename... Args>
void TraceW(int level, const char16_t* source, int line, const char16_t* format, const Args&... args) {
  const fmt16::Arg captured[sizeof...(Args) + 1] = {fmt16::MakeArg(args)...};
  TraceArgs(level, source, line, format, captured, sizeof...(Args));
}

// The narrow form: a narrow format and narrow %s arguments.
template <typename... Args>
void TraceA(int level, const char16_t* source, int line, const char* format, const Args&... args) {
  const fmt16::Arg captured[sizeof...(Args) + 1] = {fmt16::MakeArg(args)...};
  TraceArgsA(level, source, line, format, captured, sizeof...(Args));
}

// Goes only to a loaded trace library (and to the test sink). The log-server
// client uses it, so that failing to reach the log server is never reported
// through the log server.
template <typename... Args>
void TraceQuietW(int level, const char16_t* source, int line, const char16_t* format, const Args&... args) {
  const fmt16::Arg captured[sizeof...(Args) + 1] = {fmt16::MakeArg(args)...};
  TraceQuietArgs(level, source, line, format, captured, sizeof...(Args));
}

// What a test sink sees of one trace call. The texts live only for the call.
struct TraceRecord {
  int level;
  const char16_t* source;
  int line;
  const char16_t* message;    // as formatted, without the prefix
  const char16_t* decorated;  // "[module][process]" + message
  bool quiet;
};
using TraceSink = void (*)(void* context, const TraceRecord& record);
// Installs (or, with null, removes) a sink that sees every trace call.
void SetTestSink(TraceSink sink, void* context);

// After a failed hand-over the log server is tried again once this much
// time has passed (5000 ms unless changed); meanwhile lines are not handed
// over. A successful hand-over keeps every line going to the log server.
void SetLogServerRetryInterval(uint32_t ms);

// Trace lines the log server did not get because it was busy or slow: each
// line whose hand-over gave up (see logcl_Command.h for the bounds), and the
// lines passed over after it until the log server is tried again. Lines
// that find no log server at all are not counted. Process-wide, only grows.
uint64_t DroppedLines();

}  // namespace dbg

// Traces from a source file that defines kTraceSource (u".\\unit_Name").
#define VGCR_TRACE(level, ...) ::dbg::TraceW(level, kTraceSource, __LINE__, __VA_ARGS__)
#define VGCR_TRACE_A(level, ...) ::dbg::TraceA(level, kTraceSource, __LINE__, __VA_ARGS__)
