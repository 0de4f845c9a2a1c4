#include "svc_Clients.h"

#include <functional>
#include <vector>

#include "channel/rec_Logs.h"
#include "svc_Export.h"

namespace svc {
namespace {

constexpr const char* kListSql =
    "SELECT c.uid, c.computer, c.domain, c.ip, c.release, p.mask AS protection_mask, c.first_seen, c.last_seen "
    "FROM clients c LEFT JOIN protection_status p ON p.uid = c.uid "
    "WHERE (?1 = '' OR c.last_seen < ?1) AND (?2 = '' OR c.release = ?2) "
    "AND (?3 = 0 OR (p.mask & ?3) = ?3) AND (?4 = 0 OR p.mask IS NULL OR (p.mask & ?4) != ?4) "
    "ORDER BY c.last_seen DESC, c.uid";

// A column as a person reads it: NULL as "-".
std::string TextOf(const db::Statement& s, int column) { return s.IsNull(column) ? "-" : s.Text(column); }

bool Failed(db::Database& database, const db::Statement& s, std::string* error) {
  if (!s.failed()) return false;
  *error = "reading the database failed: " + database.LastError();
  return true;
}

// Runs sql for the uid and hands each row over; false when it failed.
bool EachRow(db::Database& database, const std::string& sql, const std::string& uid,
             const std::function<void(const db::Statement&)>& take, std::string* error) {
  db::Statement s = database.Prepare(sql);
  s.Bind(1, uid);
  while (s.Step()) take(s);
  return !Failed(database, s, error);
}

// The parts of one client, in the order they are shown.
struct Part {
  const char* name;
  const char* sql;  // ?1: the uid
  bool many;        // a list of rows, else one row or none
};

constexpr Part kParts[] = {
    {"protection_status", "SELECT * FROM protection_status WHERE uid = ?1", false},
    {"logon_user", "SELECT reported, logon_user, logon_user_uid FROM logon_user WHERE uid = ?1", false},
    {"polling_state", "SELECT * FROM polling_state WHERE uid = ?1", false},
    {"sections", "SELECT section, updated, length(text) AS bytes FROM client_sections WHERE uid = ?1 ORDER BY section",
     true},
    {"config_records", "SELECT event, release, created FROM config_records WHERE uid = ?1 ORDER BY event", true},
};

// The columns of a row that hold something, "name: value" each; with
// skipZeros, numbers that are 0 count as nothing too (a registration's
// unused fields).
std::string FilledColumns(const db::Statement& s, const char* indent, bool skipZeros = false) {
  std::string text;
  for (int i = 0; i < s.Columns(); ++i) {
    if (s.IsNull(i) || (s.Type(i) == db::kText && s.Text(i).empty()) || s.ColumnName(i) == "uid") continue;
    if (skipZeros && s.Type(i) == db::kInteger && s.Int(i) == 0) continue;
    text += indent + s.ColumnName(i) + ": " + s.Text(i) + "\n";
  }
  return text;
}

bool ShowLogs(db::Database& database, const std::string& uid, bool json, std::string* out, std::string* error) {
  std::string text = json ? "\"logs\":{" : "logs:\n";
  bool first = true;
  for (const logrec::Layout* layout : logrec::kLayouts) {
    const std::string sql = std::string("SELECT COUNT(*), MAX(received) FROM ") + layout->table + " WHERE uid = ?1";
    bool ok = EachRow(
        database, sql, uid,
        [&](const db::Statement& s) {
          if (json) {
            text += std::string(first ? "" : ",") + JsonString(layout->table) + ":{\"count\":" +
                    std::to_string(s.Int(0)) + ",\"newest\":" + (s.IsNull(1) ? "null" : JsonString(s.Text(1))) + "}";
          } else if (s.Int(0) > 0) {
            text += std::string("  ") + layout->table + ": " + std::to_string(s.Int(0)) + ", the newest received " +
                    s.Text(1) + "\n";
          }
          first = false;
        },
        error);
    if (!ok) return false;
  }
  *out += json ? text + "}" : text;
  return true;
}

}  // namespace

bool ListClients(db::Database& database, const ClientFilter& filter, bool json, std::ostream& out,
                 std::string* error) {
  const auto guard = database.Lock();
  db::Statement s = database.Prepare(kListSql);
  s.Bind(1, filter.seenBefore).Bind(2, filter.release).Bind(3, filter.withProtection).Bind(4, filter.withoutProtection);
  if (!json) out << "uid\tcomputer\tdomain\tip\trelease\tprotection\tfirst seen\tlast seen\n";
  while (s.Step()) {
    if (json) {
      out << RowAsJson(s) << '\n';
      continue;
    }
    for (int i = 0; i < s.Columns(); ++i) out << (i ? "\t" : "") << TextOf(s, i);
    out << '\n';
  }
  out.flush();
  return !Failed(database, s, error);
}

bool ShowClient(db::Database& database, const std::string& uid, bool json, std::ostream& out, bool* known,
                std::string* error) {
  const auto guard = database.Lock();
  std::string text;
  *known = false;
  if (!EachRow(
          database, "SELECT * FROM clients WHERE uid = ?1", uid,
          [&](const db::Statement& s) {
            *known = true;
            text = json ? "{\"client\":" + RowAsJson(s) : "client " + s.Text(0) + "\n" + FilledColumns(s, "  ", true);
          },
          error)) {
    return false;
  }
  if (!*known) return true;
  for (const Part& part : kParts) {
    std::vector<std::string> rows;
    const bool ok = EachRow(
        database, part.sql, uid,
        [&](const db::Statement& s) { rows.push_back(json ? RowAsJson(s) : FilledColumns(s, part.many ? "    " : "  ")); },
        error);
    if (!ok) return false;
    if (json) {
      std::string value = part.many ? "[" : (rows.empty() ? "null" : rows[0]);
      for (std::size_t i = 0; part.many && i < rows.size(); ++i) value += (i ? "," : "") + rows[i];
      text += std::string(",") + JsonString(part.name) + ":" + value + (part.many ? "]" : "");
    } else {
      text += std::string(part.name) + ":" + (rows.empty() ? " none\n" : "\n");
      for (std::size_t i = 0; i < rows.size(); ++i) text += (part.many ? "  -\n" : "") + rows[i];
    }
  }
  if (json) text += ",";
  if (!ShowLogs(database, uid, json, &text, error)) return false;
  out << text << (json ? "}\n" : "");
  out.flush();
  return true;
}

}  // namespace svc
