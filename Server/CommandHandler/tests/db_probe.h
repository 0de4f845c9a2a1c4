// Reads the service's database from a test, as a person with a database
// shell would, and waits for what a one-way command will have stored.
// The tests run on a SQLite file, or, when VGCR_TEST_POSTGRES names a
// scratch server's location file (scripts/lib/pgcluster.sh), on a database
// of their own on that server.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "db_Database.h"

// Where a test's service keeps its database: the file in the data folder,
// or a new database on the scratch server, dropped when the test is done.
class TestDatabase {
 public:
  explicit TestDatabase(const std::string& folder);
  ~TestDatabase();
  TestDatabase(const TestDatabase&) = delete;
  TestDatabase& operator=(const TestDatabase&) = delete;
  bool postgres() const { return !name_.empty(); }
  // What the service's --database takes; empty for the default file.
  std::string option() const { return postgres() ? location_ : ""; }
  // What db::Database::Open takes.
  const std::string& location() const { return location_; }
  // Why the database could not be made; empty when it was.
  const std::string& error() const { return error_; }

 private:
  std::string admin_, name_, location_, error_;
};

class DbProbe {
 public:
  explicit DbProbe(const std::string& location);
  DbProbe(const DbProbe&) = delete;
  DbProbe& operator=(const DbProbe&) = delete;

  // The first column of the first row as text; "<none>" without a row,
  // "<null>" for a null, "<error>" when the query fails.
  std::string Value(const std::string& sql);
  bool Exec(const std::string& sql);
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
  std::unique_ptr<db::Database> db_;
};

// The server location a pgcluster.sh location file holds (its last line
// that is not a comment); empty when there is none.
std::string ServerLocationIn(const std::string& file);

// A data folder of the test's own, removed afterwards.
std::string MakeTempFolder();
void RemoveFolder(const std::string& folder);
