#include "db_probe.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <random>

namespace {

std::string ScratchServer() {
  const char* file = std::getenv("VGCR_TEST_POSTGRES");
  return file && *file ? ServerLocationIn(file) : "";
}

}  // namespace

TestDatabase::TestDatabase(const std::string& folder) : location_(folder + "/cmdhandler.db") {
  const std::string server = ScratchServer();
  if (server.empty()) {
    if (std::getenv("VGCR_TEST_POSTGRES")) error_ = "VGCR_TEST_POSTGRES names no server location";
    return;
  }
  std::random_device random;
  name_ = "t" + std::to_string(random()) + std::to_string(random());
  admin_ = server + " dbname=postgres";
  std::unique_ptr<db::Connection> admin = db::ConnectPostgres(admin_, "", &error_);
  if (!admin || !admin->Exec("CREATE DATABASE " + name_)) {
    if (admin) error_ = admin->LastError();
    error_ = "cannot make a database on the scratch server: " + error_;
    return;
  }
  location_ = server + " dbname=" + name_;
  // The tests read with SQLite's group_concat, a person's usual tool there.
  std::unique_ptr<db::Connection> own = db::ConnectPostgres(location_, "", &error_);
  if (!own || !own->Exec("CREATE FUNCTION vgcr_join(a text, b anyelement) RETURNS text LANGUAGE sql AS $$ "
                         "SELECT CASE WHEN b IS NULL THEN a WHEN a IS NULL THEN b::text ELSE a || ',' || b::text END $$;"
                         "CREATE AGGREGATE group_concat(anyelement) (SFUNC = vgcr_join, STYPE = text)")) {
    error_ = "cannot prepare the test database: " + (own ? own->LastError() : error_);
  }
}

TestDatabase::~TestDatabase() {
  if (!postgres()) return;
  std::string ignored;
  if (std::unique_ptr<db::Connection> admin = db::ConnectPostgres(admin_, "", &ignored)) {
    admin->Exec("DROP DATABASE IF EXISTS " + name_ + " WITH (FORCE)");
  }
}

DbProbe::DbProbe(const std::string& location) {
  std::string ignored;
  db_ = db::Database::Open(location, &ignored);
}

std::string DbProbe::Value(const std::string& sql) {
  if (!db_) return "<error>";
  const auto lock = db_->Lock();
  db::Statement s = db_->Prepare(sql);
  if (s.Step()) return s.IsNull(0) ? "<null>" : s.Text(0);
  return s.failed() ? "<error>" : "<none>";
}

bool DbProbe::Exec(const std::string& sql) {
  if (!db_) return false;
  const auto lock = db_->Lock();
  return db_->Exec(sql);
}

std::string ServerLocationIn(const std::string& file) {
  std::ifstream in(file);
  std::string line, last;
  while (std::getline(in, line)) {
    if (!line.empty() && line[0] != '#') last = line;
  }
  return last;
}

std::string MakeTempFolder() {
  char folder[] = "/tmp/vgcr-cmdhandler-test-XXXXXX";
  return ::mkdtemp(folder) ? folder : "";
}

void RemoveFolder(const std::string& folder) {
  std::error_code ignored;
  if (!folder.empty()) std::filesystem::remove_all(folder, ignored);
}
