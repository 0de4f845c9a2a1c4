// The log report's builders: one row per handled log type says which record
// layout it fills, under what name its builder traces, what the builder
// answers and how the record goes out; one driver reads the layout's keys
// from the request into the record.
#pragma once

#include <cstdint>

#include "channel/rec_Logs.h"
#include "host/req_RequestParams.h"

// What a builder traces besides the values it stores.
enum class BuilderTraces : uint8_t {
  kMissingByName,   // "%s - Error: Invalid parameter - [%s]" for a missing required key
  kEveryKey,        // "%s - no parameter [%s]" for each missing key, "%s - [%s]=%d" or
                    // "%s - [%s]=%s" for each value read
  kMissingByIndex,  // "%s - Error: Invalid parameter - [%d]": the missing key's position
};

// A builder's answer when every key was there, when only optional keys were
// missing, and when a required one was. The first two let the log go.
struct BuilderCodes {
  int32_t complete;
  int32_t partial;
  int32_t missing;
  bool Succeeded(int32_t code) const { return code == complete || code == partial; }
};

struct LogRow {
  int32_t firstLogType, lastLogType;
  const logrec::Layout* layout;
  const char16_t* builder;  // the builder's name in its traces
  BuilderTraces traces;
  BuilderCodes codes;
  bool tracesType = false;  // "ProcessOnLog - type=%d" before the builder runs
  // A further check of the filled record: 1 when it is good, else the
  // builder's answer.
  int32_t (*check)(const logrec::tagCln_Log& record) = nullptr;
  // The failure line the handler writes with the builder's answer.
  const char16_t* failureTrace = nullptr;
  // Sends the record; null: SendLogRecord.
  bool (*send)(logrec::tagCln_Log& record) = nullptr;
};

// The row of a log type; null for a type the intake does not handle.
const LogRow* FindLogRow(int32_t logType);

// Reads the row's keys from the request into the record (numbers as a
// 32-bit strtol, texts cut to their width) and answers the builder's code.
int32_t RunLogBuilder(const LogRow& row, const RequestParams& params, logrec::tagCln_Log& record);

// One way under the layout's command on its pipe; a record larger than
// kFileBackedLogBytes goes file-backed.
bool SendLogRecord(logrec::tagCln_Log& record);

// A record this large travels as a spill file: the pipe then carries a short
// message instead of some hundred 1024-byte pieces, and the service reads
// the file in one go.
inline constexpr std::size_t kFileBackedLogBytes = 64 * 1024;
