// The kinds of request the simulator counts apart, and the log types it
// reports (docs/protocol.md, "Log report (110)").
#pragma once

#include <array>
#include <cstddef>

namespace agentsim {

enum class Kind { kRegister, kHeartbeat, kSettings, kAlert, kLog, kStatus, kLogon };
inline constexpr std::size_t kKindCount = 7;
inline constexpr std::array<const char*, kKindCount> kKindNames = {"register", "heartbeat", "settings", "alert",
                                                                    "log",      "status",    "logon"};
inline const char* KindName(Kind kind) { return kKindNames[static_cast<std::size_t>(kind)]; }

// The log families a client reports, mostly virus logs.
enum class LogFamily { kVirus, kUrlFiltering, kScanOperation, kSuspiciousObject, kNetworkCallback };
inline constexpr std::size_t kLogFamilyCount = 5;
inline constexpr std::array<const char*, kLogFamilyCount> kLogFamilyNames = {
    "virus", "url_filtering", "scan_operation", "suspicious_object", "network_callback"};

}  // namespace agentsim
