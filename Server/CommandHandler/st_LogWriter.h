// The logs clients report, stored in batches: a pipe thread queues a row and
// moves on; one writer thread takes everything queued and inserts it in one
// transaction, so a burst of logs costs a few commits, not one each.
//
// Nothing queued is dropped: a full queue makes the adding thread wait (the
// extension's send waits with it), and Stop stores every row queued before
// it returns.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "channel/rec_Logs.h"
#include "db_Database.h"

namespace st {

// One log as it is stored: UTF-8 texts, numbers widened.
struct LogRow {
  const logrec::Layout* layout = nullptr;
  std::string received;  // UTC "YYYY-MM-DD hh:mm:ss.sss", when it arrived
  std::string uid, release;
  int32_t recordType = 0;
  std::vector<std::string> texts;  // per key; empty for a number
  std::vector<int64_t> numbers;    // per key; 0 for a text
  std::size_t Bytes() const;
};

// The current time as the log tables keep it.
std::string UtcNow();

// Inserts one row; the database's lock must be held.
bool InsertLog(db::Database& database, const LogRow& row);

class LogWriter {
 public:
  struct Limits {
    std::size_t queueRows = 65536;
    std::size_t queueBytes = 64u << 20;  // texts can be long: memory is bounded too
    std::size_t batchRows = 1024;
  };

  explicit LogWriter(db::Database& database) : LogWriter(database, Limits{}) {}
  LogWriter(db::Database& database, Limits limits);
  ~LogWriter();
  LogWriter(const LogWriter&) = delete;
  LogWriter& operator=(const LogWriter&) = delete;

  void Start();
  // Queues the row, waiting while the queue is full; false (not queued) once
  // Stop has begun.
  bool Add(LogRow row);
  // Refuses further rows, stores everything queued, ends the thread.
  void Stop();

 private:
  void Run();
  void Store(std::vector<LogRow>& batch);
  bool InsertAll(const std::vector<LogRow>& batch);  // the database's lock held

  db::Database& database_;
  Limits limits_;
  std::mutex lock_;
  std::condition_variable changed_;  // a row queued, room made, or stopping
  std::deque<LogRow> queue_;
  std::size_t queuedBytes_ = 0;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace st
