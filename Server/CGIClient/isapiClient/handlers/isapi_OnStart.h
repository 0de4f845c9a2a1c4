// The client start registration (requestid 101).
#pragma once

#include <cstddef>
#include <cstdint>

#include "channel/ser_Serializer.h"
#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

// The registration record: one zeroed block of exactly 17412 bytes whose
// offsets are a wire format. Integers little-endian; texts fixed arrays of
// UTF-16LE units, terminated inside the array.
struct tagCln_CgiOnStart : ISerializable {
  static constexpr std::size_t kSize = 17412;
  uint8_t block[kSize] = {};

  bool Serialize(ISerializer& s) override;
  bool Deserialize(ISerializer& s) override;
};

namespace onstart {

enum class Kind : uint8_t { kText, kU8, kU16, kU32, kI32 };

struct Field {
  const char* key;
  uint16_t offset;
  uint16_t size;  // bytes; a text holds size / 2 units
  Kind kind;
};

// Every field the handler fills, in the order of the block.
inline constexpr Field kFields[] = {
    {"clienttype", 4, 2, Kind::kU16},
    {"uid", 6, 74, Kind::kText},
    {"date", 80, 18, Kind::kText},
    {"time", 98, 14, Kind::kText},
    {"computer", 112, 242, Kind::kText},
    {"domain", 354, 5002, Kind::kText},
    {"platform", 5356, 46, Kind::kText},
    {"ip", 5402, 132, Kind::kText},
    {"program", 5534, 42, Kind::kText},
    {"engine", 5576, 42, Kind::kText},
    {"tsc", 5618, 42, Kind::kText},
    {"cta", 5660, 42, Kind::kText},
    {"ency", 5702, 42, Kind::kText},
    {"instdate", 5744, 18, Kind::kText},
    {"insttime", 5762, 14, Kind::kText},
    {"hotfix", 5776, 30, Kind::kText},
    {"mac", 6326, 26, Kind::kText},
    {"csdver", 6352, 66, Kind::kText},
    {"release", 6418, 16, Kind::kText},
    {"cfweng", 6434, 42, Kind::kText},
    {"ssapieng_version", 6476, 42, Kind::kText},
    {"aegisbmdriverver", 6518, 42, Kind::kText},
    {"aegisbmservicever", 6560, 42, Kind::kText},
    {"aegispeptnver", 6602, 42, Kind::kText},
    {"aegiswlptnver", 6644, 42, Kind::kText},
    {"aegisbmptnver", 6686, 42, Kind::kText},
    {"aegistdptnver", 6728, 42, Kind::kText},
    {"servicetype", 6772, 4, Kind::kU32},
    {"updflag", 6776, 4, Kind::kU32},
    {"logflag", 6780, 4, Kind::kU32},
    {"visibleflag", 6784, 4, Kind::kU32},
    {"cfgflag", 6788, 4, Kind::kU32},
    {"oppstatus", 6796, 1, Kind::kU8},
    {"mobile", 6797, 1, Kind::kU8},
    {"flag1", 6800, 4, Kind::kU32},
    {"cputype", 6804, 2, Kind::kU16},
    {"clientlistenport", 6806, 2, Kind::kU16},
    {"suitemask", 6808, 2, Kind::kU16},
    {"producttype", 6810, 2, Kind::kU16},
    {"Isctasup", 6812, 2, Kind::kU16},
    {"spamthreshold", 6814, 2, Kind::kU16},
    {"ptnfile", 6816, 4, Kind::kU32},
    {"tscptn", 6820, 4, Kind::kU32},
    {"dcsspyptn", 6824, 4, Kind::kU32},
    {"spyptn", 6828, 4, Kind::kU32},
    {"cfwptn", 6832, 4, Kind::kU32},
    {"ssapiptn_version", 6836, 4, Kind::kU32},
    {"ssapivlassaptn_version", 6844, 4, Kind::kU32},
    {"vaptn", 6848, 4, Kind::kU32},
    {"itrap_white_version", 6868, 4, Kind::kU32},
    {"itrap_black_version", 6872, 4, Kind::kU32},
    {"majorver", 6876, 4, Kind::kU32},
    {"minorver", 6880, 4, Kind::kU32},
    {"build", 6884, 4, Kind::kU32},
    {"platformid", 6888, 4, Kind::kU32},
    {"totaldiskSpace", 6892, 4, Kind::kU32},
    {"freediskSpace", 6896, 4, Kind::kU32},
    {"non_crc_pattern", 6900, 4, Kind::kU32},
    {"bf_pattern", 6904, 4, Kind::kU32},
    {"scan_type", 6908, 4, Kind::kU32},
    {"scan_mode", 6912, 4, Kind::kU32},
    {"scan_service_address", 6916, 242, Kind::kText},
    {"domain_uid", 7158, 74, Kind::kText},
    {"adguid", 7232, 74, Kind::kText},
    {"addistinguishedname", 7306, 5002, Kind::kText},
    {"buildnum", 12308, 4, Kind::kU32},
    {"timezone", 12312, 4, Kind::kI32},
    {"wcs_address", 12316, 2050, Kind::kText},
    {"wcs_status", 14368, 4, Kind::kU32},
    {"IN_UNREACHABLE", 14372, 4, Kind::kU32},
    {"dlp_status", 14376, 4, Kind::kU32},
    {"dlplite_ver", 14380, 42, Kind::kText},
    {"dlp3rdparty_ver", 14422, 42, Kind::kText},
    {"vlebc_version", 14464, 42, Kind::kText},
    {"ncie_cnp_ver", 14506, 42, Kind::kText},
    {"ncie_rr_ver", 14548, 42, Kind::kText},
    {"LogonUser", 14590, 514, Kind::kText},
    {"CLN_SA_ISR", 15104, 2050, Kind::kText},
    {"CLN_SA_SN", 17154, 82, Kind::kText},
    {"smvptn", 17236, 42, Kind::kText},
    {"vlmstptn", 17278, 42, Kind::kText},
    {"bepptnver", 17320, 4, Kind::kU32},
    {"salptnver", 17324, 4, Kind::kU32},
    {"LogonUsrUID", 17328, 74, Kind::kText},
    {"SystemModel", 17404, 4, Kind::kU32},
    {"reboot", 17408, 1, Kind::kU8},
};

// The layout, checked when this compiles: fields in block order, none
// overlapping, none past the end, the version word first.
constexpr bool LayoutIsSound() {
  std::size_t end = 4;
  for (const Field& f : kFields) {
    if (f.offset < end) return false;
    if (f.kind == Kind::kText && f.size % 2 != 0) return false;
    if (f.kind == Kind::kU8 && f.size != 1) return false;
    if (f.kind == Kind::kU16 && f.size != 2) return false;
    if ((f.kind == Kind::kU32 || f.kind == Kind::kI32) && f.size != 4) return false;
    end = std::size_t{f.offset} + f.size;
  }
  return end <= tagCln_CgiOnStart::kSize;
}
static_assert(LayoutIsSound(), "tagCln_CgiOnStart field table");
static_assert(sizeof(kFields) / sizeof(kFields[0]) == 86, "every key of the registration has its field");

constexpr const Field* Find(const char* key) {
  for (const Field& f : kFields) {
    const char* a = f.key;
    const char* b = key;
    while (*a && *a == *b) ++a, ++b;
    if (*a == *b) return &f;
  }
  return nullptr;
}

}  // namespace onstart

int32_t ProcessOnStart(const RequestParams& params, CHttpResponse& response);
