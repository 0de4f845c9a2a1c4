// Who a simulated client is: its uid and the fields it registers with, made
// from the seed and its index alone, so that nothing of it is held in memory
// and a run with the same seed brings back the same clients.
#pragma once

#include <cstdint>
#include <string>

namespace agentsim {

struct Identity {
  uint32_t index = 0;
  std::string uid;  // a GUID, upper case, no braces
  std::string computer;
  std::string domain;
  std::string ip;
  std::string mac;  // 12 hexadecimal digits
  std::string platform;
  std::string program;
  std::string engine;
  std::string release;
  std::string user;      // the logged-on user, DOMAIN\name
  std::string userUid;   // that user's GUID
  uint32_t protection;   // which of the nine components run (bit per component)
  uint64_t traits;       // more bits for the client's own choices
};

Identity MakeIdentity(uint64_t seed, uint32_t index);

}  // namespace agentsim
