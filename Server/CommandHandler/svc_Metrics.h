// The service's metrics and health (--metrics ADDR:PORT): what its commands
// came to, its database's transactions and commits, the rows each table
// holds, what retention deleted, and how long signatures take. /healthz is
// 200 while the database answers a query.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "channel/pipe_Listener.h"
#include "cmd_Metrics.h"
#include "db_Database.h"
#include "metrics/endpoint.h"
#include "sig_Signer.h"
#include "svc_Options.h"

namespace svc {

class ServiceMetrics {
 public:
  // Rows are counted on a connection of the metrics' own, at most this
  // often: counting ten million log rows takes a while, and a scrape comes
  // every few seconds.
  static constexpr std::chrono::seconds kRowCountAge{60};

  // `database` and `signer` must outlive this; `options` name the database.
  ServiceMetrics(const Options& options, const db::Database& database, const sig::Signer& signer);
  // Serves; the listeners (running, and kept until Stop) are counted too.
  bool Start(const std::string& address, uint16_t port, const std::vector<std::unique_ptr<CPipeListener>>* listeners,
             std::string* error);
  void Stop() { endpoint_.Stop(); }
  uint16_t port() const { return endpoint_.port(); }
  cmd::CommandMetrics& commands() { return commands_; }

  std::string Render();
  bool Healthy(std::string* reason);

 private:
  // The connection of the metrics' own, opened on first use; null when it
  // cannot be opened.
  db::Database* Reader();
  void WriteRowCounts(metrics::Writer& w);

  const Options options_;
  const db::Database& database_;
  const sig::Signer& signer_;
  const std::vector<std::unique_ptr<CPipeListener>>* listeners_ = nullptr;
  cmd::CommandMetrics commands_;
  std::mutex readerLock_;
  std::unique_ptr<db::Database> reader_;
  std::map<std::string, int64_t> rows_;
  std::chrono::steady_clock::time_point rowsCounted_{};
  metrics::Endpoint endpoint_;
};

}  // namespace svc
