// The records of VDI coordination: a desktop's task start request, running
// and complete notifications (one record for the three), and the service's
// answer. The extension builds them; the service reads them back.
#pragma once

#include <cstdint>
#include <string>

#include "ser_Serializer.h"

namespace vdi {

// Widths, in characters: a request over one is refused before it is sent.
inline constexpr std::size_t kMaxPool = 128;
inline constexpr std::size_t kMaxTaskKind = 32;
inline constexpr std::size_t kMaxTaskId = 64;

// The commands, by function type (1, 2, 3).
inline constexpr const char16_t* kCommands[] = {u"CMDHLV2_CLN_VDI_TASK_START_REQUEST",
                                                u"CMDHLV2_CLN_VDI_RUNNING_NOTIFICATION",
                                                u"CMDHLV2_CLN_VDI_COMPLETE_NOTIFICATION"};

}  // namespace vdi

struct tagCln_VdiTask : ISerializable {
  std::u16string uid;
  std::u16string pool;
  std::u16string taskKind;  // start requests; may be empty otherwise
  std::u16string taskId;
  int32_t progress = 0;     // running notifications: percent
  int32_t result = 0;       // complete notifications: 0 succeeded
  bool Serialize(ISerializer& s) override;
  bool Deserialize(ISerializer& s) override;
};

struct tagCln_VdiAnswer : ISerializable {
  static constexpr int32_t kStart = 1;
  static constexpr int32_t kWait = 2;
  static constexpr int32_t kNoted = 3;
  static constexpr int32_t kUnknownClient = -1;
  static constexpr int32_t kUnknownTask = -2;
  int32_t decision = 0;
  uint32_t retryAfter = 0;  // seconds, for kWait
  uint32_t position = 0;    // the place in the pool's queue, from 1, for kWait
  bool Serialize(ISerializer& s) override {
    return ser::WriteI32(s, decision) && ser::WriteU32(s, retryAfter) && ser::WriteU32(s, position);
  }
  bool Deserialize(ISerializer& s) override {
    return ser::ReadI32(s, &decision) && ser::ReadU32(s, &retryAfter) && ser::ReadU32(s, &position);
  }
};
