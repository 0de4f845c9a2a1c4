#include "identity.h"

#include <array>
#include <cstdio>

#include "random.h"

namespace agentsim {

namespace {

template <std::size_t N>
const char* Pick(const std::array<const char*, N>& choices, uint64_t bits) {
  return choices[bits % N];
}

constexpr std::array<const char*, 5> kDomains = {"CORP", "SALES", "ENG", "HQ", "WORKGROUP"};
constexpr std::array<const char*, 4> kPrefixes = {"WS", "LT", "PC", "DESK"};
constexpr std::array<const char*, 4> kPlatforms = {"Windows 10", "Windows 11", "Windows Server 2019",
                                                   "Windows Server 2022"};
constexpr std::array<const char*, 3> kReleases = {"14.0.1", "14.0.2", "14.1"};
constexpr std::array<const char*, 3> kEngines = {"22.1", "22.2", "23.0"};
constexpr std::array<const char*, 6> kUsers = {"jdoe", "asmith", "bnguyen", "cmartin", "dkowalski", "esato"};

// A GUID whose last twelve digits are the index under a mask of the seed's,
// so that two clients of one seed can never share a uid.
std::string Guid(uint64_t seed, uint32_t index, uint64_t salt) {
  const uint64_t high = Mix64(seed ^ Mix64(index ^ salt));
  const uint64_t low = (Mix64(seed + salt) ^ index) & 0xFFFFFFFFFFFFull;
  char text[40];
  std::snprintf(text, sizeof text, "%08X-%04X-4%03X-%04X-%012llX", static_cast<unsigned>(high >> 32),
                static_cast<unsigned>((high >> 16) & 0xFFFF), static_cast<unsigned>(high & 0xFFF),
                static_cast<unsigned>(0x8000 | ((high >> 12) & 0x3FFF)), static_cast<unsigned long long>(low));
  return text;
}

std::string ComputerName(uint64_t bits, unsigned site, uint32_t index) {
  char text[32];
  std::snprintf(text, sizeof text, "%s-%02X%05u", Pick(kPrefixes, bits >> 8), site, static_cast<unsigned>(index));
  return text;
}

// 10.x.y.z: the index spreads over y and z, x carries the seed's site.
std::string Address(unsigned site, uint32_t index) {
  char text[20];
  std::snprintf(text, sizeof text, "10.%u.%u.%u", (site * 4 + (index >> 16)) & 0xFF, (index >> 8) & 0xFF,
                index & 0xFF);
  return text;
}

std::string Mac(uint64_t seed, uint32_t index) {
  char text[16];
  std::snprintf(text, sizeof text, "02%04X%06X", static_cast<unsigned>(Mix64(seed) >> 48), index & 0xFFFFFF);
  return text;
}

}  // namespace

Identity MakeIdentity(uint64_t seed, uint32_t index) {
  Identity id;
  const uint64_t bits = Mix64(seed * 0x100000001B3ull ^ index);
  const unsigned site = static_cast<unsigned>(Mix64(seed) & 0x3F);
  id.index = index;
  id.uid = Guid(seed, index, 0x5157);
  id.userUid = Guid(seed, index, 0xA11CE);
  id.domain = Pick(kDomains, bits);
  id.computer = ComputerName(bits, site, index);
  id.ip = Address(site, index);
  id.mac = Mac(seed, index);
  id.platform = Pick(kPlatforms, bits >> 16);
  id.program = "14.0";
  id.engine = Pick(kEngines, bits >> 24);
  id.release = Pick(kReleases, bits >> 32);
  id.user = id.domain + "\\" + Pick(kUsers, bits >> 40);
  id.protection = 1 | 2 | ((bits >> 48) & 1 ? 16 : 0) | ((bits >> 49) & 1 ? 4 : 0) | ((bits >> 50) & 1 ? 64 : 0);
  id.traits = Mix64(bits);
  return id;
}

}  // namespace agentsim
