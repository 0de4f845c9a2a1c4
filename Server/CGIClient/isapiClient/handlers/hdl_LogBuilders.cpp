#include "hdl_LogBuilders.h"

#include <cstring>
#include <limits>

#include "channel/cmdal2_OutputCmd.h"
#include "channel/ocl_Command.h"
#include "channel/ser_MsgSerializer.h"
#include "hdl_Common.h"
#include "platform/text.h"
#include "support/dbg_Trace.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\isapi_OnLog";

using logrec::Key;
using logrec::tagCln_Log;
using logrec::Value;

// A key's ASCII name as a wide text for the trace lines, without the heap.
class WideName {
 public:
  explicit WideName(const char* name) {
    std::size_t i = 0;
    for (; name[i] != 0 && i + 1 < sizeof text_ / sizeof text_[0]; ++i) text_[i] = static_cast<char16_t>(name[i]);
    text_[i] = 0;
  }
  const char16_t* get() const { return text_; }

 private:
  char16_t text_[48];
};

// The suspicious object is named by its file's SHA-1: 40 hexadecimal digits.
int32_t CheckFileSha1(const tagCln_Log& record) {
  constexpr int32_t kNotASha1 = -2;
  const std::u16string& sha1 = record.TextAt(0);
  if (sha1.size() != 40) return kNotASha1;
  for (char16_t c : sha1) {
    if (!((c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F'))) return kNotASha1;
  }
  return 1;
}

bool SendDataScanOPLog(tagCln_Log& record) {
  const std::u16string uid = plat::Widen(record.Uid());
  VGCR_TRACE(73, u"%s - Debug: ID[%s],1[%s],2[%s],3[%s],4[%s],5[%d],6[%d],7[%d],8[%d],9[%d],m[%s]",
             u"SendDataScanOPLog", uid, record.TextAt(0), record.TextAt(1), record.TextAt(2), record.TextAt(3),
             record.NumberAt(4), record.NumberAt(5), record.NumberAt(6), record.NumberAt(7), record.NumberAt(8),
             record.TextAt(9));
  return SendLogRecord(record);
}

constexpr BuilderCodes kOneOrFail{1, 1, 0};       // only 1 lets the record go
constexpr BuilderCodes kOneZeroOrFail{1, 0, -1};  // 1 complete, 0 partial: both go
constexpr BuilderCodes kOneOrMinusOne{1, 1, -1};

constexpr LogRow kLogRows[] = {
    {.firstLogType = 1, .lastLogType = 5, .layout = &logrec::kVirusLog, .builder = u"RetrieveVirusLog",
     .traces = BuilderTraces::kMissingByName, .codes = kOneOrFail},
    {.firstLogType = 17, .lastLogType = 17, .layout = &logrec::kUrlFilteringLog, .builder = u"RetrieveUrlFilteringLog",
     .traces = BuilderTraces::kMissingByName, .codes = kOneOrFail},
    {.firstLogType = 23, .lastLogType = 23, .layout = &logrec::kDlpLog, .builder = u"RetrieveDlpLog",
     .traces = BuilderTraces::kMissingByName, .codes = kOneZeroOrFail},
    {.firstLogType = 24, .lastLogType = 25, .layout = &logrec::kDlpLog2, .builder = u"RetrieveDlpLog2",
     .traces = BuilderTraces::kMissingByName, .codes = kOneZeroOrFail, .tracesType = true},
    {.firstLogType = 26, .lastLogType = 26, .layout = &logrec::kCallbackLog, .builder = u"RetrieveCCCALog",
     .traces = BuilderTraces::kEveryKey, .codes = kOneOrFail},
    {.firstLogType = 27, .lastLogType = 27, .layout = &logrec::kRestoreItemResult,
     .builder = u"RetrieveRestoreItemResult", .traces = BuilderTraces::kMissingByName, .codes = kOneOrFail},
    {.firstLogType = 32, .lastLogType = 32, .layout = &logrec::kScanOperationLog, .builder = u"RetrieveScanOPLog",
     .traces = BuilderTraces::kMissingByName, .codes = kOneZeroOrFail, .send = SendDataScanOPLog},
    {.firstLogType = 33, .lastLogType = 33, .layout = &logrec::kSuspiciousObjectLog,
     .builder = u"RetrieveSuspiciousObjFileLog", .traces = BuilderTraces::kMissingByIndex, .codes = kOneOrMinusOne,
     .check = CheckFileSha1, .failureTrace = u"%s - SUSPICIOUSOBJECT_FILESHA1 Error:[%d]"},
};

// A key that is absent: traced as the row says; true when the log may go
// without it.
bool MissingKey(const LogRow& row, const Key& key, std::size_t position) {
  const WideName name(key.name);
  switch (row.traces) {
    case BuilderTraces::kEveryKey:
      VGCR_TRACE(key.required ? 69 : 73, u"%s - no parameter [%s]", row.builder, name.get());
      break;
    case BuilderTraces::kMissingByIndex:
      if (key.required) {
        VGCR_TRACE(69, u"%s - Error: Invalid parameter - [%d]", row.builder, static_cast<int32_t>(position));
      }
      break;
    case BuilderTraces::kMissingByName:
      if (key.required) VGCR_TRACE(69, u"%s - Error: Invalid parameter - [%s]", row.builder, name.get());
      break;
  }
  return !key.required;
}

void ReadKey(const LogRow& row, const RequestParams& params, std::size_t position, tagCln_Log& record) {
  const Key& key = row.layout->keys[position];
  const bool traced = row.traces == BuilderTraces::kEveryKey;
  if (key.value == Value::kNumber) {
    int32_t number = 0;
    ReadNumber(params, key.name, &number);
    record.SetNumber(position, number);
    if (traced) VGCR_TRACE(73, u"%s - [%s]=%d", row.builder, WideName(key.name).get(), number);
    return;
  }
  std::u16string text;
  params.GetString(key.name, &text, std::numeric_limits<uint32_t>::max());
  record.SetText(position, text);
  if (traced) VGCR_TRACE(73, u"%s - [%s]=%s", row.builder, WideName(key.name).get(), record.TextAt(position));
}

}  // namespace

const LogRow* FindLogRow(int32_t logType) {
  for (const LogRow& row : kLogRows) {
    if (logType >= row.firstLogType && logType <= row.lastLogType) return &row;
  }
  return nullptr;
}

int32_t RunLogBuilder(const LogRow& row, const RequestParams& params, tagCln_Log& record) {
  bool partial = false;
  bool refused = false;
  for (std::size_t i = 0; i < row.layout->keys.size(); ++i) {
    if (params.Lookup(row.layout->keys[i].name) != nullptr) {
      ReadKey(row, params, i, record);
      continue;
    }
    partial = true;
    if (!MissingKey(row, row.layout->keys[i], i)) refused = true;
  }
  if (refused) return row.codes.missing;
  if (row.check) {
    const int32_t code = row.check(record);
    if (code != 1) return code;
  }
  return partial ? row.codes.partial : row.codes.complete;
}

bool SendLogRecord(tagCln_Log& record) {
  const logrec::Layout& layout = record.layout();
  const int mode = record.WireSize() > kFileBackedLogBytes ? 2 : 1;
  if (layout.pipe == logrec::Pipe::kCommandHandler) return SendRecord(layout.command, record, mode);
  try {
    CMsgSerializer message(layout.command, mode);
    message << record;
    return ocl_SendToThreatLogServer(message);
  } catch (const CIPCMsgBufferException&) {
    return false;
  }
}
