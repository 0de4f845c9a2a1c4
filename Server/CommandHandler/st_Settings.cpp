// Settings sections, pending configuration records and the per-client values
// of the version-1 setters.
#include "st_Store.h"

namespace st {
namespace {

const char* ColumnOf(ClientValue which) {
  switch (which) {
    case ClientValue::kScheduledUpdate:
      return "scheduled_update";
    case ClientValue::kWarningSetting:
      return "warning_setting";
    case ClientValue::kPolicyId:
      return "policy_id";
    case ClientValue::kStatFlag:
      return "stat_flag";
  }
  return "stat_flag";
}

}  // namespace

bool Store::ReadSection(const std::string& uid, const std::string& section, std::string* text) {
  std::lock_guard lock(database_.Lock());
  db::Statement own = database_.Prepare("SELECT text FROM client_sections WHERE uid = ? AND section = ?");
  if (own.Bind(1, uid).Bind(2, section).Step()) {
    *text = own.Text(0);
    return true;
  }
  if (own.failed()) return false;
  db::Statement fallback = database_.Prepare("SELECT text FROM section_defaults WHERE section = ?");
  *text = fallback.Bind(1, section).Step() ? fallback.Text(0) : std::string();
  return !fallback.failed();
}

bool Store::WriteSection(const std::string& uid, const std::string& section, const std::string& text, uint32_t event) {
  return db::InTransaction(database_, [&] {
    db::Statement s = database_.Prepare(std::string("INSERT INTO client_sections VALUES (?, ?, ?, ") + db::kNowSql +
                                        ") ON CONFLICT(uid, section) DO UPDATE SET text = excluded.text, "
                                        "updated = excluded.updated");
    if (!s.Bind(1, uid).Bind(2, section).Bind(3, text).Run()) return false;
    db::Statement pending = database_.Prepare(std::string("INSERT OR REPLACE INTO config_records (uid, event, created) "
                                                          "VALUES (?, ?, ") +
                                              db::kNowSql + ")");
    return pending.Bind(1, uid).Bind(2, event).Run();
  });
}

bool Store::RemoveConfigRecord(const std::string& uid, uint32_t event, bool* removed) {
  return db::InTransaction(database_, [&] {
    db::Statement s = database_.Prepare("DELETE FROM config_records WHERE uid = ? AND event = ? RETURNING 1");
    *removed = s.Bind(1, uid).Bind(2, event).Step();
    while (s.Step()) {
    }
    return !s.failed();
  });
}

bool Store::SetClientValue(const std::string& uid, ClientValue which, int64_t value) {
  return db::InTransaction(database_, [&] {
    const std::string column = ColumnOf(which);
    db::Statement s = database_.Prepare("INSERT INTO client_config (uid, " + column + ", updated) VALUES (?, ?, " +
                                        db::kNowSql + ") ON CONFLICT(uid) DO UPDATE SET " + column + " = excluded." +
                                        column + ", updated = excluded.updated");
    return s.Bind(1, uid).Bind(2, value).Run();
  });
}

bool Store::IsConfigFlagSet(const std::string& uid, uint32_t flag, bool* set) {
  std::lock_guard lock(database_.Lock());
  db::Statement s = database_.Prepare("SELECT config_flags & ? FROM client_config WHERE uid = ?");
  *set = s.Bind(1, flag).Bind(2, uid).Step() && s.Int(0) != 0;
  return !s.failed();
}

bool Store::ClientDomain(const std::string& uid, bool full, std::string* text) {
  std::lock_guard lock(database_.Lock());
  db::Statement s = database_.Prepare(
      full ? "SELECT CASE WHEN addistinguishedname <> '' THEN addistinguishedname ELSE domain END FROM clients "
             "WHERE uid = ?"
           : "SELECT domain FROM clients WHERE uid = ?");
  *text = s.Bind(1, uid).Step() ? s.Text(0) : std::string();
  return !s.failed();
}

bool Store::AlertMessage(const std::string& uid, int32_t functionType, std::string* text) {
  std::lock_guard lock(database_.Lock());
  db::Statement s = database_.Prepare(
      "SELECT text FROM alert_messages WHERE (uid IS NULL OR uid = ?) AND function_type = ? ORDER BY id DESC LIMIT 1");
  *text = s.Bind(1, uid).Bind(2, functionType).Step() ? s.Text(0) : std::string();
  return !s.failed();
}

bool Store::LoadDefaults(const std::map<std::string, std::string>& sections) {
  return db::InTransaction(database_, [&] {
    if (!database_.Exec("DELETE FROM section_defaults")) return false;
    for (const auto& [name, text] : sections) {
      db::Statement s =
          database_.Prepare(std::string("INSERT INTO section_defaults VALUES (?, ?, ") + db::kNowSql + ")");
      if (!s.Bind(1, name).Bind(2, text).Run()) return false;
    }
    return true;
  });
}

}  // namespace st
