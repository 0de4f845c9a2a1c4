#include "dbg_Trace.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

#include "logcl_Command.h"
#include "mbwc_MBWC.h"
#include "platform/codepage.h"
#include "platform/diagnostics.h"
#include "platform/dynamic_library.h"
#include "platform/process.h"
#include "platform/temp_file.h"
#include "platform/text.h"

namespace dbg {
namespace {

constexpr std::size_t kPathChars = 260;
constexpr std::size_t kModuleChars = 1024;
constexpr std::size_t kProcessChars = 260;

// The entry points of an optional trace library, looked up by name.
using InitDebugFn = int (*)(const char16_t* iniPath, const char* buildDate, const char* buildTime);
using TraceWFn = void (*)(int level, const char16_t* source, int line, const char16_t* text);

struct State {
  char16_t iniPath[kPathChars + 1] = {};
  char16_t libraryPath[kPathChars + 1] = {};
  char16_t moduleName[kModuleChars + 1] = {};
  char16_t processName[kProcessChars + 1] = {};
  std::once_flag processNameOnce;

  plat::DynamicLibrary library;
  void* entryPoints[6] = {};
  TraceWFn traceW = nullptr;

  std::FILE* localStream = nullptr;
  bool ownsLocalStream = false;

  std::atomic<int> logServerOk{1};  // try the log server until it fails once
  std::atomic<uint32_t> lastFailureTick{0};
  std::atomic<uint32_t> retryIntervalMs{5000};
  // The last failure was a log server too busy or slow to take the line, so
  // the lines passed over until the next try are its losses too.
  std::atomic<int> lastFailureGaveUp{0};
  std::atomic<uint64_t> droppedLines{0};

  std::atomic<TraceSink> sink{nullptr};
  std::atomic<void*> sinkContext{nullptr};
};

State& S() {
  static State* state = new State();  // lives as long as any thread may trace
  return *state;
}

constexpr const char* kEntryPointNames[6] = {"SD_InitDebug_with_Ini_0200", "SD_TraceW_0200", "SD_TraceA_0200",
                                             "SD_TraceW", "SD_SetDebugMsg", "SD_DbLogTrace"};

void NarrowToWide(const char* text, char16_t* out, std::size_t capacity) {
  out[0] = u'\0';
  if (text == nullptr || *text == '\0') return;
  if (MBWC::MBToWC(text, out, static_cast<int>(capacity), plat::kCpAcp, 0) == 0) {
    // Too long for the field: keep what fits rather than nothing.
    int n = plat::MultiByteToWide(plat::kCpAcp, 0, text, -1, nullptr, 0);
    if (n > 0) {
      char16_t* whole = new char16_t[static_cast<std::size_t>(n)];
      plat::MultiByteToWide(plat::kCpAcp, 0, text, -1, whole, n);
      std::size_t i = 0;
      for (; i + 1 < capacity && whole[i]; ++i) out[i] = whole[i];
      out[i] = u'\0';
      delete[] whole;
    }
  }
}

void ComputeProcessName() {
  State& s = S();
  std::u16string name = plat::FileNamePart(plat::ProcessFileName());
  if (name.size() > kProcessChars) name.resize(kProcessChars);
  for (std::size_t i = 0; i < name.size(); ++i) s.processName[i] = name[i];
  s.processName[name.size()] = u'\0';
}

void OpenLocalStream() {
  State& s = S();
  const char* target = std::getenv("VGCR_TRACE_LOG");
  if (target == nullptr || *target == '\0') return;
  if (target[0] == '-' && target[1] == '\0') {
    s.localStream = stderr;
    s.ownsLocalStream = false;
    return;
  }
#if defined(_WIN32)
  std::u16string wide = plat::FromUtf8(target);
  s.localStream = ::_wfopen(reinterpret_cast<const wchar_t*>(wide.c_str()), L"ab");
#else
  s.localStream = std::fopen(target, "ab");
#endif
  s.ownsLocalStream = s.localStream != nullptr;
}

// "%04d %02d/%02d %02d:%02d:%02d [%04x : %04x] %s - [%s(%d)]\r\n", written
// to the local log as UTF-8 in one write, so lines of different threads
// never mix.
void WriteLocalLine(const char16_t* decorated, const char16_t* source, int line) {
  State& s = S();
  plat::LocalTime t = plat::NowLocal();
  char16_t wide[kTraceBufferChars + 320];
  std::size_t n = fmt16::Format(wide, sizeof wide / sizeof wide[0],
                                u"%04d %02d/%02d %02d:%02d:%02d [%04x : %04x] %s - [%s(%d)]\r\n", t.year,
                                t.month, t.day, t.hour, t.minute, t.second, plat::CurrentProcessId(),
                                plat::CurrentThreadId(), decorated, source ? source : u"", line);
  char utf8[(kTraceBufferChars + 320) * 3];
  if (plat::ToUtf8(std::u16string_view(wide, n), utf8, sizeof utf8)) {
    std::fputs(utf8, s.localStream);
    std::fflush(s.localStream);
  }
}

bool LogServerDue() {
  State& s = S();
  if (s.logServerOk.load(std::memory_order_relaxed)) return true;
  uint32_t since = plat::TickCount() - s.lastFailureTick.load(std::memory_order_relaxed);
  return since >= s.retryIntervalMs.load(std::memory_order_relaxed);
}

bool HandOver(int level, const char16_t* source, int line, const char16_t* decorated) {
  State& s = S();
  if (!LogServerDue()) {
    if (s.lastFailureGaveUp.load(std::memory_order_relaxed)) s.droppedLines.fetch_add(1, std::memory_order_relaxed);
    return false;
  }
  LogWriteRequest request{plat::NowLocal(), plat::CurrentProcessId(), plat::CurrentThreadId(),
                          level, source, line, decorated};
  LogWriteResult result = logcl_WriteLog(request);
  if (result == LogWriteResult::kWritten) {
    s.logServerOk.store(1, std::memory_order_relaxed);
    return true;
  }
  const bool gaveUp = result == LogWriteResult::kGaveUp;
  if (gaveUp) s.droppedLines.fetch_add(1, std::memory_order_relaxed);
  s.lastFailureGaveUp.store(gaveUp ? 1 : 0, std::memory_order_relaxed);
  s.logServerOk.store(0, std::memory_order_relaxed);
  s.lastFailureTick.store(plat::TickCount(), std::memory_order_relaxed);
  return false;
}

// Writes "[module][process]" into buffer; returns its length.
std::size_t WritePrefix(char16_t* buffer) {
  State& s = S();
  std::call_once(s.processNameOnce, ComputeProcessName);
  return fmt16::Format(buffer, kTraceBufferChars, u"[%s][%s]", s.moduleName, s.processName);
}

void Notify(int level, const char16_t* source, int line, const char16_t* message,
            const char16_t* decorated, bool quiet) {
  State& s = S();
  if (TraceSink sink = s.sink.load()) {
    sink(s.sinkContext.load(), TraceRecord{level, source, line, message, decorated, quiet});
  }
}

void Dispatch(int level, const char16_t* source, int line, const char16_t* decorated, std::size_t prefixLength) {
  State& s = S();
  Notify(level, source, line, decorated + prefixLength, decorated, false);
  if (s.localStream) WriteLocalLine(decorated, source, line);
  bool handedOver = HandOver(level, source, line, decorated);
  if (!handedOver && s.traceW) s.traceW(level, source, line, decorated);
}

// Reports refusals from the OS layer (a hostile pipe folder, say).
void PlatformDiagnostic(const char16_t* text) { TraceW(5, u".\\platform", 0, u"%s", text); }

}  // namespace

void Initialize(const char* path1, const char* path2, const char* moduleName, int noLibrary) {
  State& s = S();
  NarrowToWide(path1, s.iniPath, kPathChars + 1);
  NarrowToWide(path2, s.libraryPath, kPathChars + 1);
  NarrowToWide(moduleName, s.moduleName, kModuleChars + 1);
  if (noLibrary == 0 && s.libraryPath[0] && s.library.Load(s.libraryPath)) {
    for (int i = 0; i < 6; ++i) s.entryPoints[i] = s.library.Symbol(kEntryPointNames[i]);
    s.traceW = reinterpret_cast<TraceWFn>(s.entryPoints[3]);
    if (auto init = reinterpret_cast<InitDebugFn>(s.entryPoints[0])) init(s.iniPath, "Dec 24 2015", "01:13:38");
  }
  if (s.localStream == nullptr) OpenLocalStream();
  plat::SetDiagnosticSink(&PlatformDiagnostic);
}

void Shutdown() {
  State& s = S();
  plat::SetDiagnosticSink(nullptr);
  if (s.localStream && s.ownsLocalStream) std::fclose(s.localStream);
  s.localStream = nullptr;
  s.ownsLocalStream = false;
  s.traceW = nullptr;
  for (void*& entry : s.entryPoints) entry = nullptr;
  s.library.Unload();
}

void TraceArgs(int level, const char16_t* source, int line, const char16_t* format, const fmt16::Arg* args,
               std::size_t count) {
  char16_t buffer[kTraceBufferChars];
  std::size_t prefix = WritePrefix(buffer);
  fmt16::FormatArgs(buffer + prefix, kTraceBufferChars - prefix, format, args, count);
  Dispatch(level, source, line, buffer, prefix);
}

void TraceArgsA(int level, const char16_t* source, int line, const char* format, const fmt16::Arg* args,
                std::size_t count) {
  char narrow[kTraceBufferChars];
  std::size_t length = fmt16::FormatArgs(narrow, kTraceBufferChars, format, args, count);
  char16_t buffer[kTraceBufferChars];
  std::size_t prefix = WritePrefix(buffer);
  int room = static_cast<int>(kTraceBufferChars - prefix - 1);
  int wide = length == 0 ? 0
                         : plat::MultiByteToWide(plat::kCpAcp, 0, narrow, static_cast<int>(length), buffer + prefix,
                                                 room);
  if (wide == 0 && length > 0) {
    // Longer than the room left once widened: cut, as the wide form does.
    std::size_t cut = length < static_cast<std::size_t>(room) ? length : static_cast<std::size_t>(room);
    while (cut > 0 && (wide = plat::MultiByteToWide(plat::kCpAcp, 0, narrow, static_cast<int>(cut),
                                                    buffer + prefix, room)) == 0) {
      cut = cut * 3 / 4;
    }
  }
  buffer[prefix + static_cast<std::size_t>(wide)] = u'\0';
  Dispatch(level, source, line, buffer, prefix);
}

void TraceQuietArgs(int level, const char16_t* source, int line, const char16_t* format, const fmt16::Arg* args,
                    std::size_t count) {
  State& s = S();
  char16_t buffer[kTraceBufferChars];
  std::size_t prefix = WritePrefix(buffer);
  fmt16::FormatArgs(buffer + prefix, kTraceBufferChars - prefix, format, args, count);
  Notify(level, source, line, buffer + prefix, buffer, true);
  if (s.traceW) s.traceW(level, source, line, buffer);
}

void SetTestSink(TraceSink sink, void* context) {
  State& s = S();
  s.sinkContext.store(context);
  s.sink.store(sink);
}

uint64_t DroppedLines() { return S().droppedLines.load(std::memory_order_relaxed); }

void SetLogServerRetryInterval(uint32_t ms) {
  S().retryIntervalMs.store(ms);
  S().logServerOk.store(1);
}

}  // namespace dbg
