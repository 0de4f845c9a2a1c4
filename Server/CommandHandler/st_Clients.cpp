// Registration, protection status, logon user, heartbeat, OPP reports,
// firewall counts.
#include "db_Schema.h"
#include "channel/rec_Lifecycle.h"
#include "platform/text.h"
#include "st_Store.h"

namespace st {
namespace {

bool Known(db::Database& database, const std::string& uid) {
  db::Statement s = database.Prepare("SELECT 1 FROM clients WHERE uid = ?");
  return s.Bind(1, uid).Step();
}

std::string RegistrationSql() {
  const std::string columns = db::ClientColumnList();
  std::string values, updates;
  int count = 0;
  for (const rec::Field& f : onstart::kFields) {
    if (std::string(f.name) == "uid") continue;
    values += ", ?";
    updates += std::string(", \"") + f.name + "\" = excluded.\"" + f.name + "\"";
    ++count;
  }
  return "INSERT INTO clients (uid, first_seen, last_seen, " + columns + ") VALUES (?, " + db::kNowSql + ", " +
         db::kNowSql + values +
         ") ON CONFLICT(uid) DO UPDATE SET last_seen = excluded.last_seen, registrations = registrations + 1" + updates;
}

}  // namespace

bool Store::Register(const uint8_t* block, std::size_t size, std::string* uid, bool* isNew) {
  if (size != tagCln_CgiOnStart::kSize) return false;
  static const std::string sql = RegistrationSql();
  const rec::Field* uidField = onstart::Find("uid");
  *uid = plat::ToUtf8(rec::GetText(block + uidField->offset, uidField->size / 2));
  if (uid->empty()) return false;

  return db::InTransaction(database_, [&] {
    *isNew = !Known(database_, *uid);
    db::Statement s = database_.Prepare(sql);
    s.Bind(1, *uid);
    int index = 2;
    for (const rec::Field& f : onstart::kFields) {
      if (f.offset == uidField->offset) continue;
      if (f.kind == rec::Kind::kText) {
        s.Bind(index++, plat::ToUtf8(rec::GetText(block + f.offset, f.size / 2)));
      } else {
        s.Bind(index++, rec::GetNumber(block, f));
      }
    }
    return s.Run();
  });
}

bool Store::SetProtectionStatus(const std::string& uid, uint32_t mask, bool* known) {
  return db::InTransaction(database_, [&] {
    *known = Known(database_, uid);
    if (!*known) return true;
    db::Statement s = database_.Prepare(
        std::string("INSERT OR REPLACE INTO protection_status (uid, reported, mask, av, \"as\", wr, at_office, fw, "
                    "aegis, dlp, ncie, ccsf) VALUES (?, ") +
        db::kNowSql + ", ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    s.Bind(1, uid).Bind(2, mask);
    for (int bit = 0; bit < 9; ++bit) s.Bind(3 + bit, (mask >> bit) & 1);
    return s.Run();
  });
}

bool Store::SetLogonUser(const std::string& uid, const std::string& user, const std::string& userUid) {
  return db::InTransaction(database_, [&] {
    db::Statement s =
        database_.Prepare(std::string("INSERT OR REPLACE INTO logon_user VALUES (?, ") + db::kNowSql + ", ?, ?)");
    return s.Bind(1, uid).Bind(2, user).Bind(3, userUid).Run();
  });
}

bool Store::Heartbeat(const std::string& uid, int32_t requestType, const std::string& debugInfo, bool* known,
                      PollingState* state) {
  *state = PollingState{};
  return db::InTransaction(database_, [&] {
    *known = Known(database_, uid);
    if (!*known) return true;
    // A client polling for the first time starts with the newest message
    // that addresses it.
    db::Statement upsert = database_.Prepare(
        std::string("INSERT INTO polling_state (uid, individual_setting, message_id, last_poll, last_request_type, "
                    "debug_info) VALUES (?1, EXISTS (SELECT 1 FROM client_sections WHERE uid = ?1), "
                    "(SELECT IFNULL(MAX(id), 0) FROM alert_messages WHERE uid IS NULL OR uid = ?1), ") +
        db::kNowSql +
        ", ?2, ?3) ON CONFLICT(uid) DO UPDATE SET last_poll = excluded.last_poll, "
        "last_request_type = excluded.last_request_type, debug_info = excluded.debug_info");
    if (!upsert.Bind(1, uid).Bind(2, requestType).Bind(3, debugInfo).Run()) return false;
    db::Statement read =
        database_.Prepare("SELECT individual_setting, message_id, setting_sequence FROM polling_state WHERE uid = ?");
    if (!read.Bind(1, uid).Step()) return false;
    state->individualSetting = static_cast<int32_t>(read.Int(0));
    state->messageId = static_cast<int32_t>(read.Int(1));
    state->settingSequence = static_cast<int32_t>(read.Int(2));
    return true;
  });
}

bool Store::IsKnown(const std::string& uid, bool* known) {
  std::lock_guard lock(database_.Lock());
  *known = Known(database_, uid);
  return true;
}

bool Store::AddOppReport(const std::string& uid, const std::string& release, int32_t operation, bool* known) {
  return db::InTransaction(database_, [&] {
    *known = Known(database_, uid);
    if (!*known) return true;
    db::Statement s = database_.Prepare("INSERT INTO opp_reports (uid, release, operation) VALUES (?, ?, ?)");
    return s.Bind(1, uid).Bind(2, release).Bind(3, operation).Run();
  });
}

bool Store::SetFirewallCounts(const std::string& uid, const FirewallCounts& counts) {
  return db::InTransaction(database_, [&] {
    db::Statement s = database_.Prepare(
        std::string("INSERT OR REPLACE INTO firewall_counts (uid, updated, text_field, firewall_per_hour, "
                    "intrusion_per_hour, network_virus_per_hour, firewall_total, intrusion_total, "
                    "network_virus_total) VALUES (?, ") +
        db::kNowSql + ", ?, ?, ?, ?, ?, ?, ?)");
    s.Bind(1, uid).Bind(2, counts.textField);
    for (int i = 0; i < 6; ++i) s.Bind(3 + i, counts.counts[i]);
    return s.Run();
  });
}

}  // namespace st
