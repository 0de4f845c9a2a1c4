// The query strings of the requests a client makes, with the keys
// docs/protocol.md gives each request.
#pragma once

#include <string>
#include <string_view>

#include "identity.h"
#include "kinds.h"
#include "random.h"

namespace agentsim {

std::string UrlEncode(std::string_view text);

// The current UTC time in the forms the requests carry.
struct WallTime {
  std::string compactDate;  // YYYYMMDD
  std::string compactTime;  // HHMMSS
  std::string date;         // YYYY-MM-DD
  std::string time;         // HH:MM:SS
};
WallTime Now();

// The certificate a signing client trusts, reported when it registers.
struct TrustedCertificate {
  std::string issuer;
  std::string serial;
};

std::string RegistrationQuery(const Identity& id, const TrustedCertificate* trusted);
std::string HeartbeatQuery(const Identity& id);
// The settings a client fetches when its setting sequence moves: the manual
// and real-time scan configurations (202, types 1 and 2) and the global
// settings file (201, type 1).
inline constexpr int kSettingsFetches = 3;
std::string SettingsQuery(const Identity& id, int fetch);
// The alert message of the administrator's kind (204, type 128).
std::string AlertQuery(const Identity& id);
std::string StatusQuery(const Identity& id, Random& random);
std::string LogonQuery(const Identity& id);

LogFamily PickLogFamily(Random& random);
std::string LogQuery(const Identity& id, LogFamily family, Random& random);

}  // namespace agentsim
