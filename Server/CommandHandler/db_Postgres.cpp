// The database on a PostgreSQL server, shared by several services (one per
// front door). Statements are prepared on the server the first time they
// run, by their text and the kinds of their parameters, and again after a
// reconnection.
#include <libpq-fe.h>

#include <cstdlib>
#include <cstring>
#include <map>

#include "db_Connection.h"

namespace db {
namespace {

// Type ids of the server's catalogue (pg_type.oid), fixed since long ago.
constexpr Oid kBoolOid = 16, kInt8Oid = 20, kInt2Oid = 21, kInt4Oid = 23, kFloat4Oid = 700, kFloat8Oid = 701,
              kNumericOid = 1700, kByteaOid = 17, kTextOid = 25;

// Error classes (SQLSTATE) that mean another writer was in the way.
bool IsContention(const char* state) {
  return state != nullptr && (!std::strcmp(state, "40P01") || !std::strcmp(state, "40001") ||
                              !std::strcmp(state, "55P03") || !std::strcmp(state, "57014"));
}

// "?" and "?N" become "$N"; quoted texts and names are left alone.
std::string NumberedParameters(const std::string& sql) {
  std::string out;
  out.reserve(sql.size() + 16);
  int next = 0;
  char quote = 0;
  for (std::size_t i = 0; i < sql.size(); ++i) {
    const char c = sql[i];
    if (quote) {
      if (c == quote) quote = 0;
      out += c;
      continue;
    }
    if (c == '\'' || c == '"') {
      quote = c;
      out += c;
      continue;
    }
    if (c != '?') {
      out += c;
      continue;
    }
    std::size_t digits = i + 1;
    while (digits < sql.size() && sql[digits] >= '0' && sql[digits] <= '9') ++digits;
    if (digits > i + 1) {
      out += '$';
      out.append(sql, i + 1, digits - i - 1);
      i = digits - 1;
    } else {
      out += '$' + std::to_string(++next);
    }
  }
  return out;
}

std::string Trimmed(const char* message) {
  std::string text = message ? message : "";
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text;
}

class PostgresConnection;

class PostgresCursor final : public Cursor {
 public:
  PostgresCursor(PostgresConnection& connection, std::string sql) : connection_(connection), sql_(std::move(sql)) {}
  ~PostgresCursor() override { PQclear(result_); }
  void Reset() override {
    PQclear(result_);
    result_ = nullptr;
    row_ = -1;
    values_.clear();
    types_.clear();
    nulls_.clear();
  }
  bool Bind(int index, int64_t value) override { return Set(index, std::to_string(value), kInt8Oid, false); }
  // A text's type is left to the server, which takes it from where it
  // stands (a column, a function's argument).
  bool Bind(int index, const std::string& text) override { return Set(index, text, 0, false); }
  bool BindNull(int index) override { return Set(index, {}, 0, true); }
  int Step() override;
  int64_t Int(int column) const override {
    const char* value = Value(column);
    if (value[0] == 't' && value[1] == 0) return 1;  // a boolean
    return std::strtoll(value, nullptr, 10);
  }
  // A boolean reads as SQLite gives one: 1 or 0.
  std::string Text(int column) const override {
    if (!HasRow() || PQgetisnull(result_, row_, column)) return {};
    if (PQftype(result_, column) == kBoolOid) return PQgetvalue(result_, row_, column)[0] == 't' ? "1" : "0";
    return std::string(PQgetvalue(result_, row_, column), static_cast<std::size_t>(PQgetlength(result_, row_, column)));
  }
  int Type(int column) const override {
    if (!HasRow() || PQgetisnull(result_, row_, column)) return kNull;
    switch (PQftype(result_, column)) {
      case kBoolOid:
      case kInt8Oid:
      case kInt2Oid:
      case kInt4Oid:
        return kInteger;
      case kFloat4Oid:
      case kFloat8Oid:
      case kNumericOid:
        return kFloat;
      case kByteaOid:
        return kBlob;
      default:
        return kText;
    }
  }
  double Real(int column) const override { return std::strtod(Value(column), nullptr); }
  int Columns() const override { return result_ ? PQnfields(result_) : 0; }
  std::string ColumnName(int column) const override { return result_ ? PQfname(result_, column) : ""; }

 private:
  bool HasRow() const { return result_ != nullptr && row_ >= 0 && row_ < PQntuples(result_); }
  const char* Value(int column) const {
    if (!HasRow() || column < 0 || column >= PQnfields(result_) || PQgetisnull(result_, row_, column)) return "0";
    return PQgetvalue(result_, row_, column);
  }
  bool Set(int index, std::string value, Oid type, bool null) {
    if (index < 1 || index > 999) return false;
    const auto at = static_cast<std::size_t>(index - 1);
    if (values_.size() <= at) {
      // A parameter never bound is a null text: the server need not work
      // out the type of one the statement leaves out (an optional filter).
      values_.resize(at + 1);
      types_.resize(at + 1, kTextOid);
      nulls_.resize(at + 1, true);
    }
    values_[at] = std::move(value);
    types_[at] = type;
    nulls_[at] = null;
    return true;
  }
  PostgresConnection& connection_;
  const std::string sql_;
  std::vector<std::string> values_;
  std::vector<Oid> types_;
  std::vector<bool> nulls_;
  PGresult* result_ = nullptr;
  int row_ = -1;
};

class PostgresConnection final : public Connection {
 public:
  explicit PostgresConnection(PGconn* connection) : connection_(connection) { Quiet(); }
  ~PostgresConnection() override {
    cursors_.clear();
    PQfinish(connection_);
  }
  Backend backend() const override { return Backend::kPostgres; }
  bool Exec(const std::string& sql) override {
    PGresult* result = PQexec(connection_, sql.c_str());
    const bool ok = Took(result);
    PQclear(result);
    return ok;
  }
  Cursor* Prepare(const std::string& sql) override {
    auto found = cursors_.find(sql);
    if (found == cursors_.end()) {
      found = cursors_.emplace(sql, std::make_unique<PostgresCursor>(*this, NumberedParameters(sql))).first;
    }
    found->second->Reset();
    return found->second.get();
  }
  std::string LastError() const override { return error_; }
  bool Busy() const override { return busy_; }
  // Waits are the server's (lock_timeout, statement_timeout), set at connection.
  void SetBusyWait(int) override {}
  int64_t Changes() const override { return changes_; }
  bool TransactionOpen() const override {
    const PGTransactionStatusType status = PQtransactionStatus(connection_);
    return status == PQTRANS_INTRANS || status == PQTRANS_INERROR;
  }
  bool TransactionFailed() const override { return PQtransactionStatus(connection_) == PQTRANS_INERROR; }
  bool Begin(const std::string& then) override { return Exec("BEGIN;" + then); }
  // A transaction that failed is ended by COMMIT too, which then answers
  // ROLLBACK: only "COMMIT" means stored. (Of several statements PQexec
  // answers the last one's result, or the first failure's.)
  bool Commit(const std::string& before) override {
    PGresult* result = PQexec(connection_, (before + ";COMMIT").c_str());
    const bool ok = Took(result) && std::strcmp(PQcmdStatus(result), "COMMIT") == 0;
    if (!ok && error_.empty()) error_ = "the transaction had failed and was rolled back";
    PQclear(result);
    return ok;
  }
  bool Lost() const override { return PQstatus(connection_) == CONNECTION_BAD; }
  bool Reconnect() override {
    prepared_.clear();
    PQreset(connection_);
    if (Lost()) {
      error_ = Trimmed(PQerrorMessage(connection_));
      return false;
    }
    Quiet();
    return true;
  }
  std::vector<std::string> Tables() override {
    std::vector<std::string> tables;
    Cursor* s = Prepare("SELECT table_name FROM information_schema.tables WHERE table_schema = current_schema() "
                        "AND table_type = 'BASE TABLE' ORDER BY table_name");
    while (s->Step() == 1) tables.push_back(s->Text(0));
    s->Reset();
    return tables;
  }
  // Types as the schema description declares them: a BIGINT column was
  // declared INTEGER.
  std::vector<Column> TableColumns(const std::string& table) override {
    std::vector<Column> columns;
    Cursor* s = Prepare("SELECT column_name, data_type FROM information_schema.columns "
                        "WHERE table_schema = current_schema() AND table_name = ? ORDER BY ordinal_position");
    s->Bind(1, table);
    while (s->Step() == 1) {
      const std::string type = s->Text(1);
      columns.push_back({s->Text(0), type == "bigint" ? "INTEGER" : type == "text" ? "TEXT" : type});
    }
    s->Reset();
    return columns;
  }
  bool LockForTransaction(const std::string& key) override {
    return Run("SELECT pg_advisory_xact_lock(hashtextextended(?, 0))", key, nullptr);
  }
  bool TryLock(const std::string& key) override {
    bool taken = false;
    return Run("SELECT pg_try_advisory_lock(hashtextextended(?, 0))", key, &taken) && taken;
  }
  void Unlock(const std::string& key) override {
    Run("SELECT pg_advisory_unlock(hashtextextended(?, 0))", key, nullptr);
  }

  // Runs a cursor's statement: prepared on the server once per text and
  // parameter kinds.
  PGresult* Execute(const std::string& sql, const std::vector<std::string>& values, const std::vector<Oid>& types,
                    const std::vector<bool>& nulls) {
    std::string key = sql;
    key += '\0';
    for (Oid type : types) key += type == kInt8Oid ? 'i' : type == kTextOid ? 't' : 'u';
    auto found = prepared_.find(key);
    if (found == prepared_.end()) {
      const std::string name = "s" + std::to_string(++statements_);
      PGresult* prepared = PQprepare(connection_, name.c_str(), sql.c_str(), static_cast<int>(types.size()),
                                     types.empty() ? nullptr : types.data());
      const bool ok = Took(prepared);
      PQclear(prepared);
      if (!ok) return nullptr;
      found = prepared_.emplace(std::move(key), name).first;
    }
    std::vector<const char*> pointers(values.size());
    std::vector<int> lengths(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
      pointers[i] = nulls[i] ? nullptr : values[i].c_str();
      lengths[i] = static_cast<int>(values[i].size());
    }
    PGresult* result = PQexecPrepared(connection_, found->second.c_str(), static_cast<int>(values.size()),
                                      pointers.data(), lengths.data(), nullptr, 0);
    if (!Took(result)) {
      PQclear(result);
      return nullptr;
    }
    const char* tuples = PQcmdTuples(result);
    changes_ = tuples[0] ? std::strtoll(tuples, nullptr, 10) : 0;
    return result;
  }

 private:
  // Notices ("already exists, skipping") are not for the service's log.
  void Quiet() {
    PQsetNoticeProcessor(connection_, [](void*, const char*) {}, nullptr);
  }
  // Whether a result is a success; else the error is kept.
  bool Took(PGresult* result) {
    const ExecStatusType status = result ? PQresultStatus(result) : PGRES_FATAL_ERROR;
    if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK) {
      error_.clear();
      busy_ = false;
      return true;
    }
    error_ = Trimmed(result ? PQresultErrorMessage(result) : PQerrorMessage(connection_));
    if (error_.empty()) error_ = Trimmed(PQerrorMessage(connection_));
    busy_ = result && IsContention(PQresultErrorField(result, PG_DIAG_SQLSTATE));
    return false;
  }
  bool Run(const char* sql, const std::string& key, bool* answer) {
    Cursor* s = Prepare(sql);
    s->Bind(1, key);
    const int step = s->Step();
    if (answer) *answer = step == 1 && s->Int(0) == 1;
    s->Reset();
    return step >= 0;
  }

  PGconn* connection_;
  std::map<std::string, std::unique_ptr<PostgresCursor>> cursors_;
  std::map<std::string, std::string> prepared_;  // text and kinds -> server-side name
  uint64_t statements_ = 0;
  std::string error_;
  bool busy_ = false;
  int64_t changes_ = 0;
};

int PostgresCursor::Step() {
  if (result_ == nullptr) {
    // Parameters never bound are null, as in SQLite.
    result_ = connection_.Execute(sql_, values_, types_, nulls_);
    if (result_ == nullptr) return -1;
    row_ = 0;
  } else {
    ++row_;
  }
  return row_ < PQntuples(result_) ? 1 : 0;
}

}  // namespace

// A URI, or a connection string that begins with one of libpq's keywords;
// anything else is a file's path.
bool IsPostgresLocation(const std::string& location) {
  if (location.rfind("postgresql://", 0) == 0 || location.rfind("postgres://", 0) == 0) return true;
  const std::size_t equals = location.find('=');
  if (equals == std::string::npos) return false;
  std::string keyword = location.substr(0, equals);
  while (!keyword.empty() && keyword.back() == ' ') keyword.pop_back();
  for (const char* known : {"host", "hostaddr", "port", "dbname", "user", "service", "sslmode", "options",
                            "application_name", "connect_timeout", "target_session_attrs", "passfile"}) {
    if (keyword == known) return true;
  }
  return false;
}

std::unique_ptr<Connection> ConnectPostgres(const std::string& location, const std::string& password,
                                            std::string* error) {
  char* parseError = nullptr;
  PQconninfoOption* options = PQconninfoParse(location.c_str(), &parseError);
  if (options == nullptr) {
    *error = "the database location is not one PostgreSQL reads: " + Trimmed(parseError);
    PQfreemem(parseError);
    return nullptr;
  }
  bool hasPassword = false;
  for (PQconninfoOption* o = options; o->keyword; ++o) {
    if (!std::strcmp(o->keyword, "password") && o->val && o->val[0]) hasPassword = true;
  }
  PQconninfoFree(options);
  if (hasPassword) {
    *error = "the database location holds a password, which the command line shows to everyone on the machine: "
             "give it in VGCR_DATABASE_PASSWORD or --database-password-file instead";
    return nullptr;
  }
  // A server that does not answer is given up on in a few seconds; a
  // statement that waits long for a lock fails rather than holding a
  // requester past its own wait.
  // A connection the network dropped without a word is noticed within
  // about 15 s (keepalives, and the kernel's give-up time for unanswered
  // sends), not after the system's quarter of an hour.
  std::vector<const char*> keys = {"dbname",          "connect_timeout", "application_name", "client_encoding",
                                   "options",         "keepalives",      "keepalives_idle",  "keepalives_interval",
                                   "keepalives_count", "tcp_user_timeout"};
  std::vector<const char*> values = {location.c_str(), "3", "vgcr-cmdhandler", "UTF8",
                                     "-c lock_timeout=5000 -c statement_timeout=8000 -c TimeZone=UTC",
                                     "1", "5", "2", "3", "15000"};
  if (!password.empty()) {
    keys.push_back("password");
    values.push_back(password.c_str());
  }
  keys.push_back(nullptr);
  values.push_back(nullptr);
  PGconn* connection = PQconnectdbParams(keys.data(), values.data(), 1);
  if (connection == nullptr || PQstatus(connection) != CONNECTION_OK) {
    *error = connection ? Trimmed(PQerrorMessage(connection)) : "out of memory";
    PQfinish(connection);
    return nullptr;
  }
  // The schema replaces triggers in place (CREATE OR REPLACE TRIGGER).
  if (PQserverVersion(connection) < 140000) {
    *error = "the PostgreSQL server is version " + std::to_string(PQserverVersion(connection) / 10000) +
             "; the service needs 14 or later";
    PQfinish(connection);
    return nullptr;
  }
  return std::make_unique<PostgresConnection>(connection);
}

}  // namespace db
