// The two records the server's monitoring service publishes in shared
// memory, and what the disk record's status means. The extension reads
// them; vgcr-guard writes them as the monitoring service would.
#pragma once

#include <cstdint>

namespace plat {

inline constexpr char16_t kMemThresholdRecord[] = u"Global\\MAP_FILE_VGCR_SERVER_MEM_THRESHOLD";
inline constexpr char16_t kDiskThresholdRecord[] = u"Global\\MAP_FILE_VGCR_SERVER_DISK_THRESHOLD";

// The disk threshold status. 1700 is also what the extension assumes while
// no record is published.
inline constexpr uint32_t kDiskNormal = 1700;   // below the thresholds: uploads accepted
inline constexpr uint32_t kDiskWarning = 1701;  // over the warning threshold: accepted, the client told
inline constexpr uint32_t kDiskFull = 1702;     // over the critical threshold: uploads refused
// Any other value is a state nobody defined, and is treated as full.

}  // namespace plat
