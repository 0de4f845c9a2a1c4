// The records of the client lifecycle reports: registration, logon user,
// protection status and heartbeat. The extension builds them; the
// command-handler service reads them back with the same classes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "rec_Block.h"
#include "ser_Serializer.h"

// "CMDHLV2_CLN_ON_START": one zeroed block of exactly 17412 bytes whose
// offsets are a wire format, the format version (1) in its first word.
struct tagCln_CgiOnStart : rec::Block<17412> {};

namespace onstart {

inline constexpr rec::Field kVersion{"version", 0, 4, rec::Kind::kU32};

// Every field the registration fills, in block order, named by its query key.
inline constexpr rec::Field kFields[] = {
    {"clienttype", 4, 2, rec::Kind::kU16},
    {"uid", 6, 74, rec::Kind::kText},
    {"date", 80, 18, rec::Kind::kText},
    {"time", 98, 14, rec::Kind::kText},
    {"computer", 112, 242, rec::Kind::kText},
    {"domain", 354, 5002, rec::Kind::kText},
    {"platform", 5356, 46, rec::Kind::kText},
    {"ip", 5402, 132, rec::Kind::kText},
    {"program", 5534, 42, rec::Kind::kText},
    {"engine", 5576, 42, rec::Kind::kText},
    {"tsc", 5618, 42, rec::Kind::kText},
    {"cta", 5660, 42, rec::Kind::kText},
    {"ency", 5702, 42, rec::Kind::kText},
    {"instdate", 5744, 18, rec::Kind::kText},
    {"insttime", 5762, 14, rec::Kind::kText},
    {"hotfix", 5776, 30, rec::Kind::kText},
    {"mac", 6326, 26, rec::Kind::kText},
    {"csdver", 6352, 66, rec::Kind::kText},
    {"release", 6418, 16, rec::Kind::kText},
    {"cfweng", 6434, 42, rec::Kind::kText},
    {"ssapieng_version", 6476, 42, rec::Kind::kText},
    {"aegisbmdriverver", 6518, 42, rec::Kind::kText},
    {"aegisbmservicever", 6560, 42, rec::Kind::kText},
    {"aegispeptnver", 6602, 42, rec::Kind::kText},
    {"aegiswlptnver", 6644, 42, rec::Kind::kText},
    {"aegisbmptnver", 6686, 42, rec::Kind::kText},
    {"aegistdptnver", 6728, 42, rec::Kind::kText},
    {"servicetype", 6772, 4, rec::Kind::kU32},
    {"updflag", 6776, 4, rec::Kind::kU32},
    {"logflag", 6780, 4, rec::Kind::kU32},
    {"visibleflag", 6784, 4, rec::Kind::kU32},
    {"cfgflag", 6788, 4, rec::Kind::kU32},
    {"oppstatus", 6796, 1, rec::Kind::kU8},
    {"mobile", 6797, 1, rec::Kind::kU8},
    {"flag1", 6800, 4, rec::Kind::kU32},
    {"cputype", 6804, 2, rec::Kind::kU16},
    {"clientlistenport", 6806, 2, rec::Kind::kU16},
    {"suitemask", 6808, 2, rec::Kind::kU16},
    {"producttype", 6810, 2, rec::Kind::kU16},
    {"Isctasup", 6812, 2, rec::Kind::kU16},
    {"spamthreshold", 6814, 2, rec::Kind::kU16},
    {"ptnfile", 6816, 4, rec::Kind::kU32},
    {"tscptn", 6820, 4, rec::Kind::kU32},
    {"dcsspyptn", 6824, 4, rec::Kind::kU32},
    {"spyptn", 6828, 4, rec::Kind::kU32},
    {"cfwptn", 6832, 4, rec::Kind::kU32},
    {"ssapiptn_version", 6836, 4, rec::Kind::kU32},
    {"ssapivlassaptn_version", 6844, 4, rec::Kind::kU32},
    {"vaptn", 6848, 4, rec::Kind::kU32},
    {"itrap_white_version", 6868, 4, rec::Kind::kU32},
    {"itrap_black_version", 6872, 4, rec::Kind::kU32},
    {"majorver", 6876, 4, rec::Kind::kU32},
    {"minorver", 6880, 4, rec::Kind::kU32},
    {"build", 6884, 4, rec::Kind::kU32},
    {"platformid", 6888, 4, rec::Kind::kU32},
    {"totaldiskSpace", 6892, 4, rec::Kind::kU32},
    {"freediskSpace", 6896, 4, rec::Kind::kU32},
    {"non_crc_pattern", 6900, 4, rec::Kind::kU32},
    {"bf_pattern", 6904, 4, rec::Kind::kU32},
    {"scan_type", 6908, 4, rec::Kind::kU32},
    {"scan_mode", 6912, 4, rec::Kind::kU32},
    {"scan_service_address", 6916, 242, rec::Kind::kText},
    {"domain_uid", 7158, 74, rec::Kind::kText},
    {"adguid", 7232, 74, rec::Kind::kText},
    {"addistinguishedname", 7306, 5002, rec::Kind::kText},
    {"buildnum", 12308, 4, rec::Kind::kU32},
    {"timezone", 12312, 4, rec::Kind::kI32},
    {"wcs_address", 12316, 2050, rec::Kind::kText},
    {"wcs_status", 14368, 4, rec::Kind::kU32},
    {"IN_UNREACHABLE", 14372, 4, rec::Kind::kU32},
    {"dlp_status", 14376, 4, rec::Kind::kU32},
    {"dlplite_ver", 14380, 42, rec::Kind::kText},
    {"dlp3rdparty_ver", 14422, 42, rec::Kind::kText},
    {"vlebc_version", 14464, 42, rec::Kind::kText},
    {"ncie_cnp_ver", 14506, 42, rec::Kind::kText},
    {"ncie_rr_ver", 14548, 42, rec::Kind::kText},
    {"LogonUser", 14590, 514, rec::Kind::kText},
    {"CLN_SA_ISR", 15104, 2050, rec::Kind::kText},
    {"CLN_SA_SN", 17154, 82, rec::Kind::kText},
    {"smvptn", 17236, 42, rec::Kind::kText},
    {"vlmstptn", 17278, 42, rec::Kind::kText},
    {"bepptnver", 17320, 4, rec::Kind::kU32},
    {"salptnver", 17324, 4, rec::Kind::kU32},
    {"LogonUsrUID", 17328, 74, rec::Kind::kText},
    {"SystemModel", 17404, 4, rec::Kind::kU32},
    {"reboot", 17408, 1, rec::Kind::kU8},
};
static_assert(rec::LayoutIsSound(kFields, tagCln_CgiOnStart::kSize, 4), "tagCln_CgiOnStart field table");
static_assert(sizeof(kFields) / sizeof(kFields[0]) == 86, "every key of the registration has its field");

constexpr const rec::Field* Find(const char* key) {
  for (const rec::Field& f : kFields) {
    const char* a = f.name;
    const char* b = key;
    while (*a && *a == *b) ++a, ++b;
    if (*a == *b) return &f;
  }
  return nullptr;
}

}  // namespace onstart

// "CMDHLV2_CLN_ON_LOGON_USER": three wide-string members, each one item of
// its UTF-16LE text and NUL.
struct tagCln_CgiOnLogonUser : ISerializable {
  std::u16string uid;          // at most 36 characters
  std::u16string logonUser;    // at most 256
  std::u16string logonUserId;  // at most 36
  bool Serialize(ISerializer& s) override;
  bool Deserialize(ISerializer& s) override;
};

// "CMDHLV2_CLN_ON_PROTECTION_STATUS": the client uid and its protection
// components as a mask: AV 1, AS 2, WR 4, AT_OFFICE 8, FW 16, AEGIS 32,
// DLP 64, NCIE 128, CCSF 256.
struct CComplianceClientProtection : ISerializable {
  std::u16string uid;
  uint32_t mask = 0;
  bool Serialize(ISerializer& s) override;
  bool Deserialize(ISerializer& s) override;
};

// "CMDHLV2_HEARTBEAT_NOTIFY": 1128 bytes, one block both ways. The service
// fills the three polling-state words and sends the block back.
struct tagCln_Heartbeat : rec::Block<1128> {
  static constexpr rec::Field kRequestType{"polling request type", 0, 4, rec::Kind::kI32};
  static constexpr rec::Field kIndividualSetting{"individual setting", 4, 4, rec::Kind::kI32};
  static constexpr rec::Field kMessageId{"message id", 8, 4, rec::Kind::kI32};
  static constexpr rec::Field kSettingSequence{"setting sequence", 12, 4, rec::Kind::kI32};
  // 16: 12 reserved bytes, zero.
  static constexpr rec::Field kUid{"client uid", 28, 74, rec::Kind::kText};
  static constexpr rec::Field kDebugInfo{"debug information", 102, 1024, rec::Kind::kText};
  // 1126: 2 bytes of padding, zero.
};
// Its answer: the service's receiving status (1 when the poll was recorded
// for a client it knows), then the block with the polling state filled.
struct tagCln_HeartbeatAnswer : ISerializable {
  uint32_t receivingStatus = 0;
  tagCln_Heartbeat heartbeat;
  bool Serialize(ISerializer& s) override { return ser::WriteU32(s, receivingStatus) && heartbeat.Serialize(s); }
  bool Deserialize(ISerializer& s) override { return ser::ReadU32(s, &receivingStatus) && heartbeat.Deserialize(s); }
};
inline constexpr rec::Field kHeartbeatLayout[] = {
    tagCln_Heartbeat::kRequestType, tagCln_Heartbeat::kIndividualSetting, tagCln_Heartbeat::kMessageId,
    tagCln_Heartbeat::kSettingSequence, tagCln_Heartbeat::kUid, tagCln_Heartbeat::kDebugInfo};
static_assert(rec::LayoutIsSound(kHeartbeatLayout, tagCln_Heartbeat::kSize - 2), "tagCln_Heartbeat layout");
