// Reads the service's database from a test, as a person with the sqlite3
// shell would, and waits for what a one-way command will have stored.
#pragma once

#include <sqlite3.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

class DbProbe {
 public:
  explicit DbProbe(const std::string& path) { sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE, nullptr); }
  ~DbProbe() { sqlite3_close(db_); }
  DbProbe(const DbProbe&) = delete;
  DbProbe& operator=(const DbProbe&) = delete;

  // The first column of the first row as text; "<none>" without a row.
  std::string Value(const std::string& sql) {
    sqlite3_stmt* s = nullptr;
    std::string value = "<error>";
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &s, nullptr) == SQLITE_OK) {
      if (sqlite3_step(s) == SQLITE_ROW) {
        const auto* text = sqlite3_column_text(s, 0);
        value = text ? reinterpret_cast<const char*>(text) : "<null>";
      } else {
        value = "<none>";
      }
    }
    sqlite3_finalize(s);
    return value;
  }
  bool Exec(const std::string& sql) {
    sqlite3_busy_timeout(db_, 5000);
    return sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  // Polls until the query gives `expected` (a one-way command is stored a
  // moment after its sender has moved on); the last value otherwise.
  std::string WaitFor(const std::string& sql, const std::string& expected, int timeoutMs = 5000) {
    std::string value;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    do {
      value = Value(sql);
      if (value == expected) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    } while (std::chrono::steady_clock::now() < end);
    return value;
  }

 private:
  sqlite3* db_ = nullptr;
};

// A data folder of the test's own, removed afterwards.
std::string MakeTempFolder();
void RemoveFolder(const std::string& folder);
