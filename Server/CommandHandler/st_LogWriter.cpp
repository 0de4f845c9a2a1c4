#include "st_LogWriter.h"

#include <chrono>
#include <thread>

#include "db_LogSchema.h"
#include "svc_Log.h"

namespace st {

std::size_t LogRow::Bytes() const {
  std::size_t bytes = sizeof(LogRow) + uid.size() + release.size() + received.size() + numbers.size() * 8;
  for (const std::string& text : texts) bytes += sizeof(std::string) + text.size();
  return bytes;
}

std::string UtcNow() { return svc::TimeText(true); }

bool InsertLog(db::Database& database, const LogRow& row) {
  const logrec::Layout& layout = *row.layout;
  db::Statement s = database.Prepare(db::LogInsertSql(layout));
  s.Bind(1, row.received).Bind(2, row.uid).Bind(3, row.release).Bind(4, row.recordType);
  for (std::size_t i = 0; i < layout.keys.size(); ++i) {
    const int index = static_cast<int>(5 + i);
    if (layout.keys[i].value == logrec::Value::kText) {
      s.Bind(index, row.texts[i]);
    } else {
      s.Bind(index, row.numbers[i]);
    }
  }
  return s.Run();
}

LogWriter::LogWriter(db::Database& database, Limits limits) : database_(database), limits_(limits) {}

LogWriter::~LogWriter() { Stop(); }

void LogWriter::Start() {
  std::lock_guard guard(lock_);
  if (thread_.joinable()) return;
  stopping_ = false;
  thread_ = std::thread([this] { Run(); });
}

bool LogWriter::Add(LogRow row) {
  const std::size_t bytes = row.Bytes();
  std::unique_lock guard(lock_);
  // A row larger than the byte bound still goes in alone.
  changed_.wait(guard, [&] {
    return stopping_ || queue_.empty() ||
           (queue_.size() < limits_.queueRows && queuedBytes_ + bytes <= limits_.queueBytes);
  });
  if (stopping_) return false;
  queue_.push_back(std::move(row));
  queuedBytes_ += bytes;
  changed_.notify_all();
  return true;
}

void LogWriter::Stop() {
  {
    std::lock_guard guard(lock_);
    stopping_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

void LogWriter::Run() {
  std::vector<LogRow> batch;
  for (;;) {
    {
      std::unique_lock guard(lock_);
      changed_.wait(guard, [&] { return stopping_ || !queue_.empty(); });
      if (queue_.empty()) return;  // stopping, and everything is stored
      while (!queue_.empty() && batch.size() < limits_.batchRows) {
        queuedBytes_ -= queue_.front().Bytes();
        batch.push_back(std::move(queue_.front()));
        queue_.pop_front();
      }
    }
    changed_.notify_all();  // room for waiting senders
    Store(batch);
    batch.clear();
  }
}

// One transaction for the batch. Another writer on the file (a person with
// the shell) can hold it for a while, and a database server can go away:
// the batch is then tried again, for about a minute, rather than lost.
// Should a row fail, each row goes in its own transaction, so that a bad
// row costs only itself.
void LogWriter::Store(std::vector<LogRow>& batch) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  for (;;) {
    const auto began = std::chrono::steady_clock::now();
    std::string error;
    {
      db::Transaction transaction(database_);
      if (transaction.ok()) {
        if (InsertAll(batch) && transaction.Commit()) return;
        if (!database_.connection().Lost()) break;
      }
      error = database_.LastError();  // while the lane is still this thread's
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      svc::Note(std::to_string(batch.size()) + " logs not stored: the database stays locked or unreachable: " + error);
      return;
    }
    // A server that is down fails at once; a locked file after its wait.
    std::this_thread::sleep_until(began + std::chrono::milliseconds(100));
  }
  for (const LogRow& row : batch) {
    std::string error;
    const bool ok = db::InTransaction(database_, [&] {
      if (InsertLog(database_, row)) return true;
      error = database_.LastError();
      return false;
    });
    if (!ok) {
      svc::Note(std::string("log not stored: ") + row.layout->table + " uid=" + row.uid + " received " +
                row.received + ": " + (error.empty() ? "the transaction failed" : error));
    }
  }
}

bool LogWriter::InsertAll(const std::vector<LogRow>& batch) {
  for (const LogRow& row : batch) {
    if (!InsertLog(database_, row)) return false;
  }
  return true;
}

}  // namespace st
