// What a client reads in the server's replies.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace agentsim {

// A reply that is a negative result code alone ("-5"): the request failed.
std::optional<int> NegativeCode(std::string_view body);

// The heartbeat's "[Polling_Response]" block.
struct PollingState {
  int32_t individualSetting = 0;
  int32_t messageId = 0;
  int32_t settingSequence = 0;
};
// False unless the block is there with its MESSAGE_ID and SETTING_SEQUENCE.
bool ParsePolling(std::string_view body, PollingState* state);

}  // namespace agentsim
