#include "svc_Metrics.h"

#include <vector>

#include "host/mon_Metrics.h"
#include "st_Retention.h"
#include "svc_Database.h"

namespace svc {

ServiceMetrics::ServiceMetrics(const Options& options, const db::Database& database, const sig::Signer& signer)
    : options_(options),
      database_(database),
      signer_(signer),
      endpoint_([this] { return Render(); }, [this](std::string* reason) { return Healthy(reason); }) {}

bool ServiceMetrics::Start(const std::string& address, uint16_t port,
                           const std::vector<std::unique_ptr<CPipeListener>>* listeners, std::string* error) {
  listeners_ = listeners;
  return endpoint_.Start(address, port, error);
}

db::Database* ServiceMetrics::Reader() {
  if (!reader_) {
    std::string ignored;
    reader_ = OpenDatabaseForReading(options_, &ignored);
  }
  return reader_.get();
}

void ServiceMetrics::WriteRowCounts(metrics::Writer& w) {
  std::lock_guard lock(readerLock_);
  const auto now = std::chrono::steady_clock::now();
  if (rows_.empty() || now - rowsCounted_ >= kRowCountAge) {
    if (db::Database* reader = Reader()) {
      const auto guard = reader->Lock();
      const std::vector<std::string> tables = reader->connection().Tables();
      std::map<std::string, int64_t> rows;
      for (const std::string& table : tables) {
        // The names come from the schema itself; quoted all the same.
        db::Statement count = reader->Prepare("SELECT COUNT(*) FROM \"" + table + "\"");
        if (count.Step()) rows[table] = count.Int(0);
      }
      rows_ = std::move(rows);
      rowsCounted_ = now;
    }
  }
  w.Family("vgcr_cmdhandler_table_rows", "gauge", "Rows in each table of the database, counted at most once a minute.");
  for (const auto& [table, count] : rows_) {
    w.Sample("vgcr_cmdhandler_table_rows", metrics::Labels({{"table", table}}), static_cast<uint64_t>(count));
  }
}

std::string ServiceMetrics::Render() {
  std::string text;
  metrics::Writer w(&text);
  commands_.Write(w);
  database_.WriteMetrics(w);
  const db::Database::GroupStats groups = database_.Groups();
  w.Family("vgcr_cmdhandler_shared_commits_total", "counter", "Commits that held more than one command.");
  w.Sample("vgcr_cmdhandler_shared_commits_total", "", groups.commits);
  WriteRowCounts(w);
  w.Family("vgcr_cmdhandler_retention_deleted_rows_total", "counter", "Rows retention deleted, by table.");
  for (const auto& [table, rows] : st::RetentionDeletions()) {
    w.Sample("vgcr_cmdhandler_retention_deleted_rows_total", metrics::Labels({{"table", table}}), rows);
  }
  signer_.WriteMetrics(w);
  w.Family("vgcr_cmdhandler_late_senders_total", "counter",
           "Senders dropped, and their requests with them, for not sending their whole request in time.");
  for (const auto& listener : *listeners_) {
    w.Sample("vgcr_cmdhandler_late_senders_total", metrics::Labels({{"pipe", mon::PipeLabel(listener->Name().c_str())}}),
             listener->LateClients());
  }
  w.Family("vgcr_cmdhandler_empty_senders_total", "counter",
           "Senders that connected and went without sending a byte (nothing to run).");
  for (const auto& listener : *listeners_) {
    w.Sample("vgcr_cmdhandler_empty_senders_total", metrics::Labels({{"pipe", mon::PipeLabel(listener->Name().c_str())}}),
             listener->EmptyClients());
  }
  return text;
}

bool ServiceMetrics::Healthy(std::string* reason) {
  std::lock_guard lock(readerLock_);
  db::Database* reader = Reader();
  if (reader == nullptr) {
    *reason = "the database cannot be opened";
    return false;
  }
  const auto guard = reader->Lock();
  db::Statement s = reader->Prepare("SELECT 1");
  if (!s.Step()) {
    *reason = "the database does not answer: " + reader->LastError();
    return false;
  }
  *reason = "the database answers";
  return true;
}

}  // namespace svc
