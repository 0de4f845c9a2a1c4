// Registration, protection status, logon user, heartbeat, OPP reports,
// firewall counts, update reports and the certificate a client trusts.
#include <iterator>
#include <vector>

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
         ") ON CONFLICT(uid) DO UPDATE SET last_seen = excluded.last_seen, registrations = clients.registrations + 1" + updates;
}

}  // namespace

bool Store::Register(const uint8_t* block, std::size_t size, std::string* uid, bool* isNew) {
  if (size != tagCln_CgiOnStart::kSize) return false;
  static const std::string sql = RegistrationSql();
  const rec::Field* uidField = onstart::Find("uid");
  *uid = plat::ToUtf8(rec::GetText(block + uidField->offset, uidField->size / 2));
  if (uid->empty()) return false;

  // The texts are converted before the database is taken: other commands
  // wait for it, not for this block's ninety fields.
  struct Value {
    bool isText;
    std::string text;
    int64_t number;
  };
  std::vector<Value> values;
  values.reserve(std::size(onstart::kFields));
  for (const rec::Field& f : onstart::kFields) {
    if (f.offset == uidField->offset) continue;
    if (f.kind == rec::Kind::kText) {
      values.push_back({true, plat::ToUtf8(rec::GetText(block + f.offset, f.size / 2)), 0});
    } else {
      values.push_back({false, {}, rec::GetNumber(block, f)});
    }
  }
  return db::InTransaction(database_, *uid, [&] {
    *isNew = !Known(database_, *uid);
    db::Statement s = database_.Prepare(sql);
    s.Bind(1, *uid);
    int index = 2;
    for (const Value& value : values) {
      if (value.isText) {
        s.Bind(index++, value.text);
      } else {
        s.Bind(index++, value.number);
      }
    }
    return s.Run();
  });
}

bool Store::SetProtectionStatus(const std::string& uid, uint32_t mask, bool* known) {
  return db::InTransaction(database_, uid, [&] {
    *known = Known(database_, uid);
    if (!*known) return true;
    db::Statement s = database_.Prepare(
        std::string("INSERT INTO protection_status (uid, reported, mask, av, \"as\", wr, at_office, fw, "
                    "aegis, dlp, ncie, ccsf) VALUES (?, ") +
        db::kNowSql +
        ", ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT(uid) DO UPDATE SET reported = excluded.reported, "
        "mask = excluded.mask, av = excluded.av, \"as\" = excluded.\"as\", wr = excluded.wr, "
        "at_office = excluded.at_office, fw = excluded.fw, aegis = excluded.aegis, dlp = excluded.dlp, "
        "ncie = excluded.ncie, ccsf = excluded.ccsf");
    s.Bind(1, uid).Bind(2, mask);
    for (int bit = 0; bit < 9; ++bit) s.Bind(3 + bit, (mask >> bit) & 1);
    return s.Run();
  });
}

bool Store::SetLogonUser(const std::string& uid, const std::string& user, const std::string& userUid) {
  return db::InTransaction(database_, uid, [&] {
    db::Statement s =
        database_.Prepare(std::string("INSERT INTO logon_user VALUES (?, ") + db::kNowSql +
                          ", ?, ?) ON CONFLICT(uid) DO UPDATE SET reported = excluded.reported, "
                          "logon_user = excluded.logon_user, logon_user_uid = excluded.logon_user_uid");
    return s.Bind(1, uid).Bind(2, user).Bind(3, userUid).Run();
  });
}

bool Store::Heartbeat(const std::string& uid, int32_t requestType, const std::string& debugInfo, bool* known,
                      PollingState* state) {
  *state = PollingState{};
  return db::InTransaction(database_, uid, [&] {
    *known = Known(database_, uid);
    if (!*known) return true;
    // A client polling for the first time starts with the newest message
    // that addresses it.
    db::Statement upsert = database_.Prepare(
        std::string("INSERT INTO polling_state (uid, individual_setting, message_id, last_poll, last_request_type, "
                    "debug_info) VALUES (?1, CASE WHEN EXISTS (SELECT 1 FROM client_sections WHERE uid = ?1) THEN 1 ELSE 0 END, "
                    "(SELECT COALESCE(MAX(id), 0) FROM alert_messages WHERE uid IS NULL OR uid = ?1), ") +
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
  const auto lock = database_.Lock(uid);
  *known = Known(database_, uid);
  return true;
}

bool Store::AddOppReport(const std::string& uid, const std::string& release, int32_t operation, bool* known) {
  return db::InTransaction(database_, uid, [&] {
    *known = Known(database_, uid);
    if (!*known) return true;
    db::Statement s = database_.Prepare("INSERT INTO opp_reports (uid, release, operation) VALUES (?, ?, ?)");
    return s.Bind(1, uid).Bind(2, release).Bind(3, operation).Run();
  });
}

bool Store::SetFirewallCounts(const std::string& uid, const FirewallCounts& counts) {
  return db::InTransaction(database_, uid, [&] {
    db::Statement s = database_.Prepare(
        std::string("INSERT INTO firewall_counts (uid, updated, text_field, firewall_per_hour, "
                    "intrusion_per_hour, network_virus_per_hour, firewall_total, intrusion_total, "
                    "network_virus_total) VALUES (?, ") +
        db::kNowSql +
        ", ?, ?, ?, ?, ?, ?, ?) ON CONFLICT(uid) DO UPDATE SET updated = excluded.updated, "
        "text_field = excluded.text_field, firewall_per_hour = excluded.firewall_per_hour, "
        "intrusion_per_hour = excluded.intrusion_per_hour, network_virus_per_hour = excluded.network_virus_per_hour, "
        "firewall_total = excluded.firewall_total, intrusion_total = excluded.intrusion_total, "
        "network_virus_total = excluded.network_virus_total");
    s.Bind(1, uid).Bind(2, counts.textField);
    for (int i = 0; i < 6; ++i) s.Bind(3 + i, counts.counts[i]);
    return s.Run();
  });
}

bool Store::ReportUpdate(const UpdateReport& report, bool* known, std::string* components) {
  components->clear();
  return db::InTransaction(database_, report.uid, [&] {
    *known = Known(database_, report.uid);
    if (!*known) return true;
    db::Statement history = database_.Prepare(
        std::string("INSERT INTO update_history (received, uid, release, \"date\", \"time\", result, program, engine, "
                    "ptnfile, spyptn, cfwptn, vaptn, tscptn) VALUES (") +
        db::kNowSql + ", ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    history.Bind(1, report.uid).Bind(2, report.release).Bind(3, report.date).Bind(4, report.time);
    history.Bind(5, report.result).Bind(6, report.program).Bind(7, report.engine);
    history.Bind(8, report.ptnfile).Bind(9, report.spyptn).Bind(10, report.cfwptn).Bind(11, report.vaptn);
    if (!history.Bind(12, report.tscptn).Run()) return false;
    if (report.result == 0) {
      // A client that leaves a version out of its report (a component it
      // does not run, a key it did not send) has not lost what it had.
      db::Statement versions = database_.Prepare(
          "UPDATE clients SET program = COALESCE(NULLIF(?2, ''), program), engine = COALESCE(NULLIF(?3, ''), engine), "
          "ptnfile = COALESCE(NULLIF(?4, 0), ptnfile), spyptn = COALESCE(NULLIF(?5, 0), spyptn), "
          "cfwptn = COALESCE(NULLIF(?6, 0), cfwptn), vaptn = COALESCE(NULLIF(?7, 0), vaptn), "
          "tscptn = COALESCE(NULLIF(?8, 0), tscptn) WHERE uid = ?1");
      versions.Bind(1, report.uid).Bind(2, report.program).Bind(3, report.engine).Bind(4, report.ptnfile);
      versions.Bind(5, report.spyptn).Bind(6, report.cfwptn).Bind(7, report.vaptn);
      if (!versions.Bind(8, report.tscptn).Run()) return false;
    }
    db::Statement section = database_.Prepare(
        "SELECT COALESCE((SELECT text FROM client_sections WHERE uid = ?1 AND section = 'INI_COMPONENT_VER'), "
        "(SELECT text FROM section_defaults WHERE section = 'INI_COMPONENT_VER'), '')");
    if (!section.Bind(1, report.uid).Step()) return false;
    *components = section.Text(0);
    return true;
  });
}

bool Store::SetClientCertificate(const std::string& uid, const std::string& issuer, const std::string& serial,
                                 bool* known) {
  return db::InTransaction(database_, uid, [&] {
    *known = Known(database_, uid);
    if (!*known) return true;
    db::Statement s = database_.Prepare(
        std::string("INSERT INTO client_certificates (uid, issuer, serial, reported) VALUES (?, ?, ?, ") +
        db::kNowSql +
        ") ON CONFLICT(uid) DO UPDATE SET issuer = excluded.issuer, serial = excluded.serial, "
        "reported = excluded.reported");
    return s.Bind(1, uid).Bind(2, issuer).Bind(3, serial).Run();
  });
}

}  // namespace st
