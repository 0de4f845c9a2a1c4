// The heartbeat poll (requestid 207).
#pragma once

#include <cstddef>
#include <cstdint>

#include "channel/ser_Serializer.h"
#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

// 1128 bytes, one block both ways: polling request type (0), individual
// setting (4), message id (8), setting sequence (12), reserved (16, 12
// bytes), client uid (28, UTF-16 [37]), debug information (102, UTF-16
// [512]), padding (1126, 2 bytes).
struct tagCln_Heartbeat : ISerializable {
  static constexpr std::size_t kSize = 1128;
  static constexpr std::size_t kRequestType = 0, kIndividualSetting = 4, kMessageId = 8, kSettingSequence = 12;
  static constexpr std::size_t kUid = 28, kUidUnits = 37, kDebugInfo = 102, kDebugInfoUnits = 512;
  uint8_t block[kSize] = {};

  int32_t Get(std::size_t offset) const;
  void Set(std::size_t offset, int32_t value);
  void SetText(std::size_t offset, std::size_t units, const std::u16string& text);
  bool Serialize(ISerializer& s) override;
  bool Deserialize(ISerializer& s) override;
};
static_assert(tagCln_Heartbeat::kDebugInfo + 2 * tagCln_Heartbeat::kDebugInfoUnits + 2 == tagCln_Heartbeat::kSize);
static_assert(tagCln_Heartbeat::kUid + 2 * tagCln_Heartbeat::kUidUnits == tagCln_Heartbeat::kDebugInfo);

int32_t ProcessPollingSetting(const RequestParams& params, CHttpResponse& response);
