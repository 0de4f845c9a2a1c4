// What the service keeps about its clients, in the database. Each call is
// one transaction: it lands whole or not at all. Texts are UTF-8 in the
// database; uids are compared without regard to case.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "db_Database.h"

namespace st {

struct PollingState {
  int32_t individualSetting = 0;
  int32_t messageId = 0;
  int32_t settingSequence = 0;
};

// The settings values the version-1 setters write, one column each.
enum class ClientValue { kScheduledUpdate, kWarningSetting, kPolicyId, kStatFlag };

// What a client reports of an update: when it finished (its own clock),
// its result (0: it succeeded) and the versions it has now.
struct UpdateReport {
  std::string uid, release, date, time;
  int32_t result = 0;
  std::string program, engine;
  uint32_t ptnfile = 0, spyptn = 0, cfwptn = 0, vaptn = 0, tscptn = 0;
};

struct FirewallCounts {
  std::string textField;
  int64_t counts[6] = {};  // per hour: firewall, intrusion, network virus; then the same accumulated
};

class Store {
 public:
  explicit Store(db::Database& database) : database_(database) {}

  // The start registration block: inserts the client or refreshes its row
  // (first_seen kept). *uid is the client's uid from the block.
  bool Register(const uint8_t* block, std::size_t size, std::string* uid, bool* isNew);
  bool SetProtectionStatus(const std::string& uid, uint32_t mask, bool* known);
  bool SetLogonUser(const std::string& uid, const std::string& user, const std::string& userUid);
  // Records the poll and answers the client's polling state; an unknown
  // client is answered zeros and nothing is stored.
  bool Heartbeat(const std::string& uid, int32_t requestType, const std::string& debugInfo, bool* known,
                 PollingState* state);
  bool SetFirewallCounts(const std::string& uid, const FirewallCounts& counts);

  // Settings texts: a client's own section, else the default.
  bool ReadSection(const std::string& uid, const std::string& section, std::string* text);
  // Stores a client's own section (or drops it, so that the default applies
  // again) and makes the section's configuration record pending (and sets
  // its flag): the client learns of the change from its next heartbeat.
  // *event is the record made pending (0: none).
  bool WriteSection(const std::string& uid, const std::string& section, const std::string& text, uint32_t* event);
  bool ClearSection(const std::string& uid, const std::string& section, uint32_t* event, bool* removed);
  // The client has fetched: the record goes, and the flags its section set.
  bool RemoveConfigRecord(const std::string& uid, uint32_t event, bool* removed);
  bool SetClientValue(const std::string& uid, ClientValue which, int64_t value);
  bool IsConfigFlagSet(const std::string& uid, uint32_t flag, bool* set);
  // The client's domain as it registered; full: its directory name when
  // it has one.
  bool ClientDomain(const std::string& uid, bool full, std::string* text);
  // The newest alert message for the client (or for every client) of this
  // function type, else the shipped default of the kind; empty when neither.
  bool AlertMessage(const std::string& uid, int32_t functionType, std::string* text);
  // Posts an alert message; an empty uid addresses every client.
  bool AddAlertMessage(const std::string& uid, int32_t functionType, const std::string& text, int64_t* id);
  bool IsKnown(const std::string& uid, bool* known);
  // The server's update order, the same for every client (empty: none).
  bool UpdateOrder(std::string* text);
  bool SetUpdateOrder(const std::string& text);
  // A client's report that it activated (52) or restored (53) its OPP
  // policy; kept for known clients only.
  bool AddOppReport(const std::string& uid, const std::string& release, int32_t operation, bool* known);
  // Keeps a known client's update report in update_history and, when the
  // update succeeded, the versions it reports as the client's own in
  // `clients` (a version reported empty or 0 keeps the one known). An
  // unknown client's report is not stored. *components is the
  // INI_COMPONENT_VER section the client reads (its own, else the
  // default), read in the same transaction; empty for an unknown client.
  bool ReportUpdate(const UpdateReport& report, bool* known, std::string* components);
  // The signing certificate a known client says it trusts now.
  bool SetClientCertificate(const std::string& uid, const std::string& issuer, const std::string& serial,
                            bool* known);
  // Replaces the default sections with these (name -> text).
  // The shipped defaults, with the operator's own (SetDefault) over them.
  bool LoadDefaults(const std::map<std::string, std::string>& sections);
  // An operator's default for SECTION (text), or back to the one the
  // service found in its defaults folder at its last start (null; none
  // there: no default). Every client without a section of its own by that
  // name gets it as a change: the pending record, the flag and a new
  // setting sequence, so that its next heartbeat tells it to fetch.
  // *clients: how many.
  bool SetDefault(const std::string& section, const std::string* text, int64_t* clients);

 private:
  db::Database& database_;
};

}  // namespace st
