// Bytes written to a service pipe as they are, the way a broken or hostile
// sender would write them.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "channel/channel_Settings.h"
#include "channel/pipe_Client.h"
#include "channel/ser_MsgSerializer.h"

inline void SendRaw(const std::vector<uint8_t>& bytes, const char16_t* pipe = kCommandHandlerPipe) {
  CPipeClient client;
  ASSERT_TRUE(client.Open(pipe));
  uint32_t length = static_cast<uint32_t>(bytes.size());
  client.Send(bytes.data(), &length);
  client.Close();
}

inline std::vector<uint8_t> MessageBytes(CMsgSerializer& message) {
  return std::vector<uint8_t>(message.Buffer().Data(), message.Buffer().Data() + message.GetSize());
}

// A version-1 text command: UTF-16LE, fields separated by tabs.
inline std::vector<uint8_t> Utf16(const std::u16string& text) {
  std::vector<uint8_t> bytes;
  for (char16_t c : text) {
    bytes.push_back(static_cast<uint8_t>(c));
    bytes.push_back(static_cast<uint8_t>(c >> 8));
  }
  return bytes;
}
