#include "logcl_Command.h"

#include <atomic>

#include "channel/pipe_Client.h"
#include "dbg_Trace.h"
#include "platform/errors.h"
#include "str_Format.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\logcl_Command";
// The lines these notices have always been reported from; log readers
// match on them.
constexpr int kNoticeLine = 114;
constexpr int kOpenFailedLine = 119;
constexpr int kSendFailedLine = 126;

std::atomic<bool> g_noticeShown{false};
std::atomic<uint32_t> g_busyWaitMs{kLogServerBusyWaitMs};
std::atomic<uint32_t> g_sendMs{kLogServerSendMs};

// The request is one UTF-16LE text without terminator, fields joined by tabs:
// LOG_WRITE, local time "YYYY-MM-DD hh:mm:ss.mmm", process id, thread id,
// level, source, line, and the decorated text (last, so it may hold tabs).
constexpr std::size_t kRequestChars = dbg::kTraceBufferChars + 512;

}  // namespace

LogWriteResult logcl_WriteLog(const LogWriteRequest& r) {
  char16_t request[kRequestChars];
  std::size_t length = fmt16::Format(request, kRequestChars,
                                     u"LOG_WRITE\t%04d-%02d-%02d %02d:%02d:%02d.%03d\t%u\t%u\t%d\t%s\t%d\t%s",
                                     r.time.year, r.time.month, r.time.day, r.time.hour, r.time.minute,
                                     r.time.second, r.time.millisecond, r.processId, r.threadId, r.level,
                                     r.source ? r.source : u"", r.line, r.text ? r.text : u"");
  CPipeClient client;
  if (!client.Open(kLogServerPipeName, PipeBounds{g_busyWaitMs.load(), g_sendMs.load()})) {
    uint32_t err = plat::LastError();
    if (err == plat::kErrorFileNotFound) {
      if (!g_noticeShown.exchange(true)) {
        dbg::TraceQuietW(5, kTraceSource, kNoticeLine, u"Need to Start LogServer for turn on debug log.");
      }
    } else {
      dbg::TraceQuietW(5, kTraceSource, kOpenFailedLine, u"Initial pipe client failed! err=%d", err);
    }
    return err == plat::kErrorSemTimeout ? LogWriteResult::kGaveUp : LogWriteResult::kFailed;
  }
  uint32_t bytes = static_cast<uint32_t>(length * sizeof(char16_t));
  if (client.Send(request, &bytes)) return LogWriteResult::kWritten;
  uint32_t err = plat::LastError();
  dbg::TraceQuietW(5, kTraceSource, kSendFailedLine, u"pipe send failed!. err=%d", err);
  return err == plat::kErrorSemTimeout ? LogWriteResult::kGaveUp : LogWriteResult::kFailed;
}

void logcl_ResetNotice() { g_noticeShown = false; }

void logcl_SetBounds(uint32_t busyWaitMs, uint32_t sendMs) {
  g_busyWaitMs = busyWaitMs;
  g_sendMs = sendMs;
}
