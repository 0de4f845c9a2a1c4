#include "db_Schema.h"

#include <regex>

#include "channel/rec_Lifecycle.h"
#include "db_LogSchema.h"

namespace db {
namespace {

std::string Quoted(const char* name) { return std::string("\"") + name + "\""; }

std::string ClientsTable() {
  std::string sql =
      "CREATE TABLE IF NOT EXISTS clients (\n"
      "  uid TEXT PRIMARY KEY COLLATE NOCASE,\n"
      "  first_seen TEXT NOT NULL,\n"
      "  last_seen TEXT NOT NULL,\n"
      "  registrations INTEGER NOT NULL DEFAULT 1";
  for (const rec::Field& f : onstart::kFields) {
    if (std::string(f.name) == "uid") continue;
    sql += ",\n  " + Quoted(f.name) + (f.kind == rec::Kind::kText ? " TEXT" : " INTEGER");
  }
  return sql + "\n);\n";
}

constexpr const char* kStateTables = R"sql(
CREATE TABLE IF NOT EXISTS protection_status (
  uid TEXT PRIMARY KEY COLLATE NOCASE,
  reported TEXT NOT NULL,
  mask INTEGER NOT NULL,
  av INTEGER, "as" INTEGER, wr INTEGER, at_office INTEGER, fw INTEGER,
  aegis INTEGER, dlp INTEGER, ncie INTEGER, ccsf INTEGER
);
CREATE TABLE IF NOT EXISTS logon_user (
  uid TEXT PRIMARY KEY COLLATE NOCASE,
  reported TEXT NOT NULL,
  logon_user TEXT NOT NULL,
  logon_user_uid TEXT NOT NULL
);
-- What a heartbeat answers: whether the client has settings of its own,
-- the newest alert message for it, and how often its settings changed.
CREATE TABLE IF NOT EXISTS polling_state (
  uid TEXT PRIMARY KEY COLLATE NOCASE,
  individual_setting INTEGER NOT NULL DEFAULT 0,
  message_id INTEGER NOT NULL DEFAULT 0,
  setting_sequence INTEGER NOT NULL DEFAULT 0,
  last_poll TEXT,
  last_request_type INTEGER,
  debug_info TEXT
);
-- Per-client values the version-1 setters write.
CREATE TABLE IF NOT EXISTS client_config (
  uid TEXT PRIMARY KEY COLLATE NOCASE,
  scheduled_update INTEGER,
  warning_setting INTEGER,
  policy_id INTEGER,
  stat_flag INTEGER,
  config_flags INTEGER NOT NULL DEFAULT 0,
  updated TEXT
);
-- A configuration record is pending from the moment a client's settings
-- change until the client has fetched them.
CREATE TABLE IF NOT EXISTS config_records (
  uid TEXT NOT NULL COLLATE NOCASE,
  event INTEGER NOT NULL,
  release TEXT NOT NULL DEFAULT '',
  created TEXT NOT NULL,
  PRIMARY KEY (uid, event)
);
-- Settings texts: the shipped defaults, and a client's own where it has one.
CREATE TABLE IF NOT EXISTS section_defaults (
  section TEXT PRIMARY KEY,
  text TEXT NOT NULL,
  loaded TEXT NOT NULL
);
-- The defaults folder as the service found it at its last start, and an
-- operator's defaults (set-default), which stand in for the shipped section
-- of the same name in section_defaults, across restarts.
CREATE TABLE IF NOT EXISTS shipped_defaults (
  section TEXT PRIMARY KEY,
  text TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS operator_defaults (
  section TEXT PRIMARY KEY,
  text TEXT NOT NULL,
  updated TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS client_sections (
  uid TEXT NOT NULL COLLATE NOCASE,
  section TEXT NOT NULL,
  text TEXT NOT NULL,
  updated TEXT NOT NULL,
  PRIMARY KEY (uid, section)
);
-- Alert messages; a null uid addresses every client.
CREATE TABLE IF NOT EXISTS alert_messages (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  uid TEXT COLLATE NOCASE,
  function_type INTEGER NOT NULL DEFAULT 0,
  text TEXT NOT NULL,
  created TEXT NOT NULL DEFAULT (strftime('%Y-%m-%d %H:%M:%f','now'))
);
-- The server's update order, one for every client (requestid 205).
CREATE TABLE IF NOT EXISTS update_order (
  id INTEGER PRIMARY KEY CHECK (id = 1),
  text TEXT NOT NULL,
  updated TEXT NOT NULL
);
-- Clients' reports that they activated (52) or restored (53) their OPP policy.
CREATE TABLE IF NOT EXISTS opp_reports (
  id INTEGER PRIMARY KEY,
  received TEXT NOT NULL DEFAULT (strftime('%Y-%m-%d %H:%M:%f','now')),
  uid TEXT NOT NULL COLLATE NOCASE,
  release TEXT NOT NULL,
  operation INTEGER NOT NULL
);
-- The firewall counts a client reported last: this hour's, and the totals as
-- the client itself accumulates them (the service adds nothing up).
CREATE TABLE IF NOT EXISTS firewall_counts (
  uid TEXT PRIMARY KEY COLLATE NOCASE,
  updated TEXT NOT NULL,
  text_field TEXT,
  firewall_per_hour INTEGER, intrusion_per_hour INTEGER, network_virus_per_hour INTEGER,
  firewall_total INTEGER, intrusion_total INTEGER, network_virus_total INTEGER
);
-- Every update report of a known client, as it came: when the update
-- finished by the client's clock, its result (0: it succeeded, else the
-- client's error code) and the versions it reported. Kept as long as the
-- logs are.
CREATE TABLE IF NOT EXISTS update_history (
  id INTEGER PRIMARY KEY,
  received TEXT NOT NULL,
  uid TEXT NOT NULL COLLATE NOCASE,
  release TEXT NOT NULL,
  "date" TEXT NOT NULL,
  "time" TEXT NOT NULL,
  result INTEGER NOT NULL,
  program TEXT NOT NULL,
  engine TEXT NOT NULL,
  ptnfile INTEGER NOT NULL, spyptn INTEGER NOT NULL, cfwptn INTEGER NOT NULL, vaptn INTEGER NOT NULL,
  tscptn INTEGER NOT NULL
);
CREATE INDEX IF NOT EXISTS update_history_uid_received ON update_history (uid, received);
CREATE INDEX IF NOT EXISTS update_history_received ON update_history (received);
-- The signing certificate each client said last that it trusts.
CREATE TABLE IF NOT EXISTS client_certificates (
  uid TEXT PRIMARY KEY COLLATE NOCASE,
  issuer TEXT NOT NULL,
  serial TEXT NOT NULL,
  reported TEXT NOT NULL
);
-- Files clients uploaded, each kept as uploads/<stored_name> in the data
-- folder. The name is made from the id, never from the client's file name,
-- which is a label only. Ids are never used again (AUTOINCREMENT), so a
-- file left behind can never be taken for a later upload's.
CREATE TABLE IF NOT EXISTS uploads (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  received TEXT NOT NULL,
  uid TEXT NOT NULL COLLATE NOCASE,
  release TEXT NOT NULL,
  kind TEXT NOT NULL,
  file_name TEXT NOT NULL,
  size INTEGER NOT NULL,
  md5 TEXT NOT NULL,
  disk_status INTEGER NOT NULL,
  stored_name TEXT NOT NULL UNIQUE
);
CREATE INDEX IF NOT EXISTS uploads_uid ON uploads (uid);
-- VDI tasks: a desktop's request to run a task in its pool, queued until a
-- slot is free, running, then done; or dead (it stopped reporting) or gone
-- (it stopped asking while queued). Times in milliseconds since 1970:
-- datetime(started_ms / 1000, 'unixepoch') reads one in SQLite,
-- to_timestamp(started_ms / 1000.0) in PostgreSQL.
CREATE TABLE IF NOT EXISTS vdi_tasks (
  id INTEGER PRIMARY KEY,
  uid TEXT NOT NULL COLLATE NOCASE,
  pool TEXT NOT NULL,
  task_kind TEXT NOT NULL,
  task_id TEXT NOT NULL,
  state TEXT NOT NULL,
  asked_ms INTEGER NOT NULL,
  started_ms INTEGER,
  last_report_ms INTEGER NOT NULL,
  finished_ms INTEGER,
  progress INTEGER NOT NULL DEFAULT 0,
  result INTEGER
);
CREATE INDEX IF NOT EXISTS vdi_tasks_pool_state ON vdi_tasks (pool, state, id);
CREATE INDEX IF NOT EXISTS vdi_tasks_desktop ON vdi_tasks (uid, pool, task_id);
-- The signing certificate every service on this database signs with
-- (signing-cert.pem as text): clients verify one certificate, whichever
-- service answers them.
CREATE TABLE IF NOT EXISTS signing_identity (
  id INTEGER PRIMARY KEY CHECK (id = 1),
  certificate TEXT NOT NULL,
  recorded TEXT NOT NULL
);

)sql";

// The polling state follows the tables it summarises, whoever writes them
// (the service, or a person with a database shell).
constexpr const char* kSqliteTriggers = R"sql(
CREATE TRIGGER IF NOT EXISTS client_section_added AFTER INSERT ON client_sections BEGIN
  INSERT INTO polling_state (uid, individual_setting, setting_sequence) VALUES (NEW.uid, 1, 1)
    ON CONFLICT(uid) DO UPDATE SET individual_setting = 1, setting_sequence = setting_sequence + 1;
END;
CREATE TRIGGER IF NOT EXISTS client_section_changed AFTER UPDATE ON client_sections BEGIN
  INSERT INTO polling_state (uid, individual_setting, setting_sequence) VALUES (NEW.uid, 1, 1)
    ON CONFLICT(uid) DO UPDATE SET individual_setting = 1, setting_sequence = setting_sequence + 1;
END;
CREATE TRIGGER IF NOT EXISTS client_section_removed AFTER DELETE ON client_sections BEGIN
  UPDATE polling_state
     SET individual_setting = EXISTS (SELECT 1 FROM client_sections WHERE uid = OLD.uid),
         setting_sequence = setting_sequence + 1
   WHERE uid = OLD.uid;
END;
CREATE TRIGGER IF NOT EXISTS alert_message_added AFTER INSERT ON alert_messages BEGIN
  UPDATE polling_state SET message_id = NEW.id WHERE NEW.uid IS NULL OR uid = NEW.uid;
END;
)sql";

// The same triggers in PostgreSQL's form: a function each.
constexpr const char* kPostgresTriggers = R"sql(
CREATE OR REPLACE FUNCTION client_section_set() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  INSERT INTO polling_state (uid, individual_setting, setting_sequence) VALUES (NEW.uid, 1, 1)
    ON CONFLICT(uid) DO UPDATE SET individual_setting = 1, setting_sequence = polling_state.setting_sequence + 1;
  RETURN NULL;
END $$;
CREATE OR REPLACE TRIGGER client_section_set AFTER INSERT OR UPDATE ON client_sections
  FOR EACH ROW EXECUTE FUNCTION client_section_set();
CREATE OR REPLACE FUNCTION client_section_removed() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  UPDATE polling_state
     SET individual_setting = CASE WHEN EXISTS (SELECT 1 FROM client_sections WHERE uid = OLD.uid) THEN 1 ELSE 0 END,
         setting_sequence = setting_sequence + 1
   WHERE uid = OLD.uid;
  RETURN NULL;
END $$;
CREATE OR REPLACE TRIGGER client_section_removed AFTER DELETE ON client_sections
  FOR EACH ROW EXECUTE FUNCTION client_section_removed();
CREATE OR REPLACE FUNCTION alert_message_added() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  UPDATE polling_state SET message_id = NEW.id WHERE NEW.uid IS NULL OR uid = NEW.uid;
  RETURN NULL;
END $$;
CREATE OR REPLACE TRIGGER alert_message_added AFTER INSERT ON alert_messages
  FOR EACH ROW EXECUTE FUNCTION alert_message_added();
)sql";

// What PostgreSQL needs before the tables: uids compared without regard to
// case, and the forms of strftime the service's statements use ('now',
// optionally shifted by an interval such as '-90 days'), with SQLite's
// meaning: UTC, the statement's time.
constexpr const char* kPostgresPrelude = R"sql(
CREATE COLLATION IF NOT EXISTS nocase (provider = icu, locale = 'und-u-ks-level2', deterministic = false);
CREATE OR REPLACE FUNCTION strftime(format text, moment text, shift text DEFAULT '0') RETURNS text
LANGUAGE sql STABLE AS $$
  SELECT to_char((CASE WHEN moment = 'now' THEN statement_timestamp() ELSE moment::timestamptz END
                  + shift::interval) AT TIME ZONE 'UTC',
                 replace(replace(replace(replace(replace(replace(replace(format,
                   '%Y', 'YYYY'), '%m', 'MM'), '%d', 'DD'), '%H', 'HH24'), '%M', 'MI'), '%S', 'SS'), '%f', 'SS.MS'))
$$;
)sql";

}  // namespace

std::string ClientColumnList() {
  std::string list;
  for (const rec::Field& f : onstart::kFields) {
    if (std::string(f.name) == "uid") continue;
    if (!list.empty()) list += ", ";
    list += Quoted(f.name);
  }
  return list;
}

std::string ForBackend(const std::string& sql, Backend backend) {
  if (backend == Backend::kSqlite) return sql;
  // A 64-bit integer everywhere, and ids the server numbers, never again
  // the same (as SQLite's AUTOINCREMENT; the other id columns of the
  // description only need to be unique).
  static const std::regex id(R"(\bINTEGER PRIMARY KEY( AUTOINCREMENT)?)");
  static const std::regex integer(R"(\bINTEGER\b)");
  return std::regex_replace(std::regex_replace(sql, id, "BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY"),
                            integer, "BIGINT");
}

namespace {

// The schema's history: each version's step, applied in turn to a database
// that is behind. Every step is written for both backends at once
// (ForBackend); a new version is a new row, never an edit of an old one.
struct Migration {
  int version;
  std::string (*sql)(Backend backend);
};

std::string Version1(Backend backend) {
  const bool postgres = backend == Backend::kPostgres;
  return (postgres ? kPostgresPrelude : "") + ForBackend(ClientsTable() + kStateTables, backend) +
         (postgres ? kPostgresTriggers : kSqliteTriggers);
}

// Uploads' files stay with the service that took them: the row says which.
std::string Version2(Backend) { return "ALTER TABLE uploads ADD COLUMN door TEXT NOT NULL DEFAULT ''"; }

constexpr Migration kMigrations[] = {{1, Version1}, {2, Version2}};

int Recorded(Database& database, bool* ok) {
  Statement s = database.Prepare("SELECT COALESCE(MAX(version), 0) FROM schema_version");
  *ok = s.Step();
  return *ok ? static_cast<int>(s.Int(0)) : 0;
}

bool Migrate(Database& database, std::string* error) {
  Connection& connection = database.connection();
  const Backend backend = connection.backend();
  // Services starting together on one server take turns here.
  if (!connection.LockForTransaction("vgcr schema") ||
      !database.Exec("CREATE TABLE IF NOT EXISTS schema_version (version " +
                     std::string(backend == Backend::kPostgres ? "BIGINT" : "INTEGER") +
                     " NOT NULL, applied TEXT NOT NULL)")) {
    *error = database.LastError();
    return false;
  }
  bool ok = false;
  const int recorded = Recorded(database, &ok);
  if (!ok) {
    *error = database.LastError();
    return false;
  }
  if (recorded > kSchemaVersion) {
    *error = "the database's schema is version " + std::to_string(recorded) + ", newer than this vgcr-cmdhandler's (" +
             std::to_string(kSchemaVersion) + "): a newer release has used it; run that release, or restore a copy " +
             "made before it";
    return false;
  }
  for (const Migration& step : kMigrations) {
    if (step.version <= recorded) continue;
    Statement record =
        database.Prepare(std::string("INSERT INTO schema_version (version, applied) VALUES (?, ") + kNowSql + ")");
    if (!database.Exec(step.sql(backend)) || !record.Bind(1, step.version).Run()) {
      *error = "schema version " + std::to_string(step.version) + ": " + database.LastError();
      return false;
    }
  }
  // The log tables follow the log layouts of this build.
  if (!DropStaleLogTables(database, error)) return false;
  if (!database.Exec(ForBackend(LogTablesSql(), backend))) {
    *error = database.LastError();
    return false;
  }
  return true;
}

}  // namespace

bool CreateSchema(Database& database, std::string* error) {
  const auto lock = database.Lock();
  Connection& connection = database.connection();
  if (!connection.Begin("")) {
    *error = database.LastError();
    return false;
  }
  if (!Migrate(database, error)) {
    database.Exec("ROLLBACK");
    return false;
  }
  if (connection.Commit("")) return true;
  *error = database.LastError();
  return false;
}

}  // namespace db
