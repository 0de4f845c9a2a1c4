// Settings sections, pending configuration records and the per-client values
// of the version-1 setters.
#include "st_Sections.h"
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
  const auto lock = database_.Lock(uid);
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

namespace {

// A record already pending stays so, made again: the client fetches once.
constexpr const char* kConfigRecordUpsert = " ON CONFLICT(uid, event) DO UPDATE SET created = excluded.created";

// Makes the section's record pending and sets its flag, in the caller's
// transaction.
bool MarkChanged(db::Database& database, const std::string& uid, const SectionRule& rule) {
  if (rule.event != 0) {
    db::Statement pending = database.Prepare(std::string("INSERT INTO config_records (uid, event, created) "
                                                         "VALUES (?, ?, ") +
                                             db::kNowSql + ")" + kConfigRecordUpsert);
    if (!pending.Bind(1, uid).Bind(2, rule.event).Run()) return false;
  }
  if (rule.flag == 0) return true;
  db::Statement flag = database.Prepare(std::string("INSERT INTO client_config (uid, config_flags, updated) VALUES (?1, "
                                                    "?2, ") +
                                        db::kNowSql +
                                        ") ON CONFLICT(uid) DO UPDATE SET config_flags = client_config.config_flags | ?2, "
                                        "updated = excluded.updated");
  return flag.Bind(1, uid).Bind(2, rule.flag).Run();
}

}  // namespace

bool Store::WriteSection(const std::string& uid, const std::string& section, const std::string& text,
                         uint32_t* event) {
  const SectionRule* rule = FindSection(section);
  *event = rule ? rule->event : 0;
  if (rule == nullptr) return false;
  return db::InTransaction(database_, uid, [&] {
    db::Statement s = database_.Prepare(std::string("INSERT INTO client_sections VALUES (?, ?, ?, ") + db::kNowSql +
                                        ") ON CONFLICT(uid, section) DO UPDATE SET text = excluded.text, "
                                        "updated = excluded.updated");
    return s.Bind(1, uid).Bind(2, section).Bind(3, text).Run() && MarkChanged(database_, uid, *rule);
  });
}

bool Store::ClearSection(const std::string& uid, const std::string& section, uint32_t* event, bool* removed) {
  const SectionRule* rule = FindSection(section);
  *event = rule ? rule->event : 0;
  *removed = false;
  if (rule == nullptr) return false;
  return db::InTransaction(database_, uid, [&] {
    db::Statement s = database_.Prepare("DELETE FROM client_sections WHERE uid = ? AND section = ? RETURNING 1");
    *removed = s.Bind(1, uid).Bind(2, section).Step();
    while (s.Step()) {
    }
    return !s.failed() && (!*removed || MarkChanged(database_, uid, *rule));
  });
}

bool Store::RemoveConfigRecord(const std::string& uid, uint32_t event, bool* removed) {
  uint32_t flags = 0;
  for (const SectionRule& rule : kSections) {
    if (rule.event == event) flags |= rule.flag;
  }
  return db::InTransaction(database_, uid, [&] {
    db::Statement s = database_.Prepare("DELETE FROM config_records WHERE uid = ? AND event = ? RETURNING 1");
    *removed = s.Bind(1, uid).Bind(2, event).Step();
    while (s.Step()) {
    }
    if (s.failed()) return false;
    if (flags == 0) return true;
    db::Statement clear = database_.Prepare("UPDATE client_config SET config_flags = config_flags & ~? WHERE uid = ?");
    return clear.Bind(1, flags).Bind(2, uid).Run();
  });
}

bool Store::SetClientValue(const std::string& uid, ClientValue which, int64_t value) {
  return db::InTransaction(database_, uid, [&] {
    const std::string column = ColumnOf(which);
    db::Statement s = database_.Prepare("INSERT INTO client_config (uid, " + column + ", updated) VALUES (?, ?, " +
                                        db::kNowSql + ") ON CONFLICT(uid) DO UPDATE SET " + column + " = excluded." +
                                        column + ", updated = excluded.updated");
    return s.Bind(1, uid).Bind(2, value).Run();
  });
}

bool Store::IsConfigFlagSet(const std::string& uid, uint32_t flag, bool* set) {
  const auto lock = database_.Lock(uid);
  db::Statement s = database_.Prepare("SELECT config_flags & ? FROM client_config WHERE uid = ?");
  *set = s.Bind(1, flag).Bind(2, uid).Step() && s.Int(0) != 0;
  return !s.failed();
}

bool Store::ClientDomain(const std::string& uid, bool full, std::string* text) {
  const auto lock = database_.Lock(uid);
  db::Statement s = database_.Prepare(
      full ? "SELECT CASE WHEN addistinguishedname <> '' THEN addistinguishedname ELSE domain END FROM clients "
             "WHERE uid = ?"
           : "SELECT domain FROM clients WHERE uid = ?");
  *text = s.Bind(1, uid).Step() ? s.Text(0) : std::string();
  return !s.failed();
}

bool Store::AlertMessage(const std::string& uid, int32_t functionType, std::string* text) {
  const auto lock = database_.Lock(uid);
  db::Statement s = database_.Prepare(
      "SELECT text FROM alert_messages WHERE (uid IS NULL OR uid = ?) AND function_type = ? ORDER BY id DESC LIMIT 1");
  if (s.Bind(1, uid).Bind(2, functionType).Step()) {
    *text = s.Text(0);
    return true;
  }
  if (s.failed()) return false;
  db::Statement fallback = database_.Prepare("SELECT text FROM section_defaults WHERE section = ?");
  *text = fallback.Bind(1, "CLN_ALERT_MSG_" + std::to_string(functionType)).Step() ? fallback.Text(0) : std::string();
  return !fallback.failed();
}

bool Store::AddAlertMessage(const std::string& uid, int32_t functionType, const std::string& text, int64_t* id) {
  return db::InTransaction(database_, uid, [&] {
    db::Statement s = database_.Prepare(
        "INSERT INTO alert_messages (uid, function_type, text) VALUES (NULLIF(?, ''), ?, ?) RETURNING id");
    if (!s.Bind(1, uid).Bind(2, functionType).Bind(3, text).Step()) return false;
    *id = s.Int(0);
    while (s.Step()) {
    }
    return !s.failed();
  });
}

bool Store::UpdateOrder(std::string* text) {
  const auto lock = database_.Lock();
  db::Statement s = database_.Prepare("SELECT text FROM update_order WHERE id = 1");
  *text = s.Step() ? s.Text(0) : std::string();
  return !s.failed();
}

bool Store::SetUpdateOrder(const std::string& text) {
  return db::InTransaction(database_, [&] {
    db::Statement s = database_.Prepare(std::string("INSERT INTO update_order (id, text, updated) VALUES (1, ?, ") +
                                        db::kNowSql +
                                        ") ON CONFLICT(id) DO UPDATE SET text = excluded.text, "
                                        "updated = excluded.updated");
    return s.Bind(1, text).Run();
  });
}

bool Store::LoadDefaults(const std::map<std::string, std::string>& sections) {
  return db::InTransaction(database_, [&] {
    // Services starting together on one server take turns.
    if (!database_.connection().LockForTransaction("vgcr defaults")) return false;
    if (!database_.Exec("DELETE FROM section_defaults; DELETE FROM shipped_defaults")) return false;
    for (const auto& [name, text] : sections) {
      db::Statement s =
          database_.Prepare(std::string("INSERT INTO section_defaults VALUES (?, ?, ") + db::kNowSql + ")");
      if (!s.Bind(1, name).Bind(2, text).Run()) return false;
      db::Statement shipped = database_.Prepare("INSERT INTO shipped_defaults VALUES (?, ?)");
      if (!shipped.Bind(1, name).Bind(2, text).Run()) return false;
    }
    return database_.Exec("INSERT INTO section_defaults SELECT section, text, updated FROM operator_defaults "
                          "WHERE TRUE ON CONFLICT(section) DO UPDATE SET text = excluded.text, "
                          "loaded = excluded.loaded");
  });
}

namespace {

// Every client without its own `section` gets the change as WriteSection
// gives one client: a pending record, the flag, a new setting sequence.
bool MarkChangedForDefault(db::Database& database, const SectionRule& rule, int64_t* clients) {
  const std::string without =
      " FROM clients WHERE uid NOT IN (SELECT uid FROM client_sections WHERE section = ?1)";
  if (rule.event != 0) {
    db::Statement pending = database.Prepare(std::string("INSERT INTO config_records (uid, event, created) "
                                                         "SELECT uid, ?2, ") + db::kNowSql + without +
                                             kConfigRecordUpsert);
    if (!pending.Bind(1, rule.section).Bind(2, rule.event).Run()) return false;
  }
  if (rule.flag != 0) {
    db::Statement flag = database.Prepare(std::string("INSERT INTO client_config (uid, config_flags, updated) SELECT "
                                                      "uid, ?2, ") + db::kNowSql + without +
                                          " ON CONFLICT(uid) DO UPDATE SET config_flags = client_config.config_flags | ?2, "
                                          "updated = excluded.updated");
    if (!flag.Bind(1, rule.section).Bind(2, rule.flag).Run()) return false;
  }
  db::Statement sequence = database.Prepare("INSERT INTO polling_state (uid, setting_sequence) SELECT uid, 1" + without +
                                            " ON CONFLICT(uid) DO UPDATE SET setting_sequence = polling_state.setting_sequence + 1 "
                                            "RETURNING 1");
  sequence.Bind(1, rule.section);
  *clients = 0;
  while (sequence.Step()) ++*clients;
  return !sequence.failed();
}

}  // namespace

bool Store::SetDefault(const std::string& section, const std::string* text, int64_t* clients) {
  const SectionRule* rule = FindSection(section);
  if (rule == nullptr) return false;
  return db::InTransaction(database_, [&] {
    const std::string now = db::kNowSql;
    if (text != nullptr) {
      db::Statement own = database_.Prepare("INSERT INTO operator_defaults VALUES (?, ?, " + now +
                                            ") ON CONFLICT(section) DO UPDATE SET text = excluded.text, "
                                            "updated = excluded.updated");
      if (!own.Bind(1, section).Bind(2, *text).Run()) return false;
      db::Statement in = database_.Prepare("INSERT INTO section_defaults VALUES (?, ?, " + now +
                                           ") ON CONFLICT(section) DO UPDATE SET text = excluded.text, "
                                           "loaded = excluded.loaded");
      if (!in.Bind(1, section).Bind(2, *text).Run()) return false;
    } else {
      db::Statement own = database_.Prepare("DELETE FROM operator_defaults WHERE section = ?");
      db::Statement gone = database_.Prepare("DELETE FROM section_defaults WHERE section = ?");
      db::Statement back = database_.Prepare("INSERT INTO section_defaults SELECT section, text, " + now +
                                             " FROM shipped_defaults WHERE section = ?");
      if (!own.Bind(1, section).Run() || !gone.Bind(1, section).Run() || !back.Bind(1, section).Run()) return false;
    }
    return MarkChangedForDefault(database_, *rule, clients);
  });
}

}  // namespace st
