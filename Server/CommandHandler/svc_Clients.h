// What an operator asks about the clients: the list, and one client whole.
// Text for a person, or JSON for a script.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "db_Database.h"

namespace svc {

struct ClientFilter {
  std::string seenBefore;  // last seen before this time (the tables' UTC form); empty: any
  std::string release;     // this release only; empty: any
  int64_t withProtection = 0;     // the protection mask has every one of these bits; 0: any
  int64_t withoutProtection = 0;  // it lacks one of these bits, or none was reported; 0: any
};

// One line per client, the most recently seen first: uid, computer, domain,
// address, release, protection mask, first and last seen. As JSON Lines,
// one object each.
bool ListClients(db::Database& database, const ClientFilter& filter, bool json, std::ostream& out,
                 std::string* error);

// The client's registration (the fields it filled), protection status,
// logon user, own sections, pending configuration records and how many logs
// of each kind it has sent, with the newest. *known false: no such client,
// nothing written.
bool ShowClient(db::Database& database, const std::string& uid, bool json, std::ostream& out, bool* known,
                std::string* error);

}  // namespace svc
