// The log records of requestid 110: one layout per kind of log (the command
// it travels under, its pipe, its keys in order and the service's table) and
// one record class that both the extension and the service stream through
// that layout, so the two ends read the same items in the same order.
//
// A record's items: the client uid (a 37-byte block of narrow text, its
// terminator inside), the release (an 8-byte block, likewise), the server's
// record type (i32), then one item per key in layout order: a text key as a
// wide string cut to the key's width, a number as an i32.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ser_Serializer.h"

namespace logrec {

enum class Value : uint8_t { kText, kNumber };

struct Key {
  const char* name;  // the request key, and the service's column
  Value value;
  uint16_t width;    // a text keeps at most this many UTF-16 units
  bool required;     // absent: the log is refused (-5)
};

enum class Pipe : uint8_t { kCommandHandler, kThreatLog };

struct Layout {
  int32_t firstRecordType, lastRecordType;  // what ConvertLogType stores for it
  const char16_t* command;
  Pipe pipe;
  const char* table;  // where the service keeps it
  std::span<const Key> keys;
  bool Carries(int32_t recordType) const { return recordType >= firstRecordType && recordType <= lastRecordType; }
};

// Text widths, in UTF-16 units: dates and times, addresses, names, paths,
// messages, and the matched content a DLP event quotes.
inline constexpr uint16_t kStamp = 32;
inline constexpr uint16_t kAddress = 64;
inline constexpr uint16_t kHash = 128;
inline constexpr uint16_t kName = 256;
inline constexpr uint16_t kPath = 1024;
inline constexpr uint16_t kMessage = 4096;
inline constexpr uint16_t kQuote = 32767;

constexpr Key Text(const char* name, uint16_t width, bool required = false) {
  return {name, Value::kText, width, required};
}
constexpr Key Number(const char* name, bool required = false) { return {name, Value::kNumber, 0, required}; }

inline constexpr Key kVirusKeys[] = {
    Text("date", kStamp, true),      Text("time", kStamp, true),     Text("login", kName),
    Text("virus", kName, true),      Text("file", kPath, true),      Text("compressedfile", kPath),
    Text("directory", kPath),        Text("infectionsource", kName), Number("firstaction"),
    Number("firststatus"),           Number("secondaction"),         Number("secondstatus"),
};
inline constexpr Key kUrlFilteringKeys[] = {
    Text("time", kStamp, true), Number("mode"),       Number("credlevel"),      Text("policy", kName),
    Number("credscore"),        Number("credscorethreshold"), Number("groupcode"), Text("groupname", kName),
    Text("realip", kAddress),   Number("restype"),
};
inline constexpr Key kDlpKeys[] = {
    Number("action", true),     Text("time", kStamp, true),  Text("program", kPath),
    Text("channel", kAddress),  Text("template", kName),     Text("user", kName),
    Text("dest", kPath),        Text("desc", kMessage),      Text("templatedisplay", kName),
    Text("originalstring", kQuote),
};
inline constexpr Key kDlp2Keys[] = {
    Number("action", true),    Text("time", kStamp, true), Text("program", kPath),
    Text("channel", kAddress), Text("user", kName),        Text("dest", kPath),
    Text("desc", kMessage),    Text("forensicfilehash", kHash), Text("originalstring", kQuote),
};
inline constexpr Key kCallbackKeys[] = {
    Text("time", kStamp, true),   Text("Head", kName),           Number("Direction"),
    Number("Port"),               Text("LocalHost", kAddress),   Text("RemoteHost", kAddress),
    Number("Protocol"),           Number("Type"),                Number("SubType"),
    Text("Rear", kName),          Number("Mode"),                Number("CredLevel"),
    Number("CredScore"),          Number("ResType"),             Number("LocPolicy"),
    Number("CredScoreThreshold"), Number("LogSrc"),              Number("Action"),
    Number("CCType"),             Text("EndTime", kStamp),       Number("Count"),
    Number("Severity"),           Text("CCServer", kPath, true), Text("ProcessName", kPath),
    Text("StrLocalHost", kName),  Text("StrRemoteHost", kName),  Text("EventMessage", kMessage),
    Number("GroupCode"),          Text("GroupName", kName),      Text("RealIp", kAddress),
    Text("User", kName),          Text("ClientIP", kAddress),
};
inline constexpr Key kRestoreItemKeys[] = {
    Text("restoreTaskId", kAddress, true), Text("restoreItemId", kAddress, true), Text("time", kStamp),
    Number("result", true),                Number("errorCode"),
};
inline constexpr Key kScanOperationKeys[] = {
    Text("START_DATE", kStamp, true), Text("START_TIME", kStamp, true), Text("FINISH_DATE", kStamp),
    Text("FINISH_TIME", kStamp),      Number("SCAN_STATUS", true),      Number("SCAN_TYPE", true),
    Number("SCANNED_OBJ"),            Number("VIRUS_COUNT"),            Number("SPYWARE_COUNT"),
    Text("MEMO", kMessage),
};
inline constexpr Key kSuspiciousObjectKeys[] = {
    Text("SoData", kAddress, true), Number("SoType"),          Text("SoFilename", kPath),
    Text("SoFilepath", kPath),      Text("CompressedFile", kPath), Number("SoSourceType"),
    Number("SoAction"),             Number("SoScanType"),      Text("Time", kStamp, true),
    Text("FileCreatedTime", kStamp), Text("FileModifiedTime", kStamp), Number("ScanResult"),
    Text("login", kName),
};

inline constexpr Layout kVirusLog{1, 5, u"CMDHLV2_SET_VIRUS_LOG", Pipe::kCommandHandler, "virus_log", kVirusKeys};
inline constexpr Layout kUrlFilteringLog{17, 17, u"CMDHLV2_SET_URLFILTERING_LOG", Pipe::kCommandHandler,
                                         "url_filtering_log", kUrlFilteringKeys};
inline constexpr Layout kDlpLog{23, 23, u"CMDHLV2_SET_DLP_CLC_LOG", Pipe::kCommandHandler, "dlp_log", kDlpKeys};
inline constexpr Layout kDlpLog2{24, 25, u"CMDHLV2_SET_DLP_CLC_LOG2", Pipe::kCommandHandler, "dlp_log2", kDlp2Keys};
inline constexpr Layout kCallbackLog{20, 20, u"VG_ADD_VGCLOGMSG", Pipe::kThreatLog, "callback_log", kCallbackKeys};
inline constexpr Layout kRestoreItemResult{27, 27, u"CMDHOV2_SET_FA_RESTORE_ITEM", Pipe::kCommandHandler,
                                           "restore_item_result", kRestoreItemKeys};
inline constexpr Layout kScanOperationLog{22, 22, u"CMDHLV2_SET_SCAN_OP_LOG", Pipe::kCommandHandler, "scan_operation_log",
                                          kScanOperationKeys};
inline constexpr Layout kSuspiciousObjectLog{33, 33, u"CMDHLV2_SET_SUSPICIOUS_OBJ_FILE_LOG", Pipe::kCommandHandler,
                                             "suspicious_object_log", kSuspiciousObjectKeys};

inline constexpr const Layout* kLayouts[] = {&kVirusLog,         &kUrlFilteringLog,  &kDlpLog,
                                             &kDlpLog2,          &kCallbackLog,      &kRestoreItemResult,
                                             &kScanOperationLog, &kSuspiciousObjectLog};

// The layout a command travels under; null for any other command.
const Layout* FindLayout(std::u16string_view command);

// A log record: zeroed when made, then filled key by key.
class tagCln_Log : public ISerializable {
 public:
  static constexpr std::size_t kUidBytes = 37;
  static constexpr std::size_t kReleaseBytes = 8;

  explicit tagCln_Log(const Layout& layout);

  const Layout& layout() const { return *layout_; }
  // Narrow texts, in the ANSI code page, cut to 36 and 7 characters.
  void SetUid(std::string_view text);
  void SetRelease(std::string_view text);
  std::string Uid() const;
  std::string Release() const;
  int32_t recordType = 0;

  // By the key's position in the layout.
  void SetText(std::size_t key, std::u16string_view text);
  void SetNumber(std::size_t key, int32_t value) { numbers_[key] = value; }
  const std::u16string& TextAt(std::size_t key) const { return texts_[key]; }
  int32_t NumberAt(std::size_t key) const { return numbers_[key]; }

  // The bytes the record adds to a message.
  std::size_t WireSize() const;

  bool Serialize(ISerializer& s) override;
  // Refuses a record whose items do not match the layout; texts longer than
  // their key's width are cut, as the sender would have.
  bool Deserialize(ISerializer& s) override;

 private:
  const Layout* layout_;
  uint8_t uid_[kUidBytes] = {};
  uint8_t release_[kReleaseBytes] = {};
  std::vector<std::u16string> texts_;  // one per key; empty for numbers
  std::vector<int32_t> numbers_;       // one per key; 0 for texts
};

}  // namespace logrec
