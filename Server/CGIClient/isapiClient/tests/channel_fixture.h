// A test peer playing the command-handler service, with the channel's reply
// time-out shortened so that fault cases stay quick.
#pragma once

#include <gtest/gtest.h>

#include "channel/channel_Settings.h"
#include "service_peer.h"

class WithServicePeer : public ::testing::Test {
 protected:
  static constexpr uint32_t kTestReplyTimeoutMs = 1500;

  void SetUp() override {
    SetChannelReplyTimeoutMs(kTestReplyTimeoutMs);
    ASSERT_TRUE(peer_.Start());
  }
  void TearDown() override {
    peer_.Stop();
    SetChannelReplyTimeoutMs(0);
  }

  // The fields of the one version-2 message the stand-in received; a failure
  // (and no fields) when it got none, several, or another command.
  std::vector<peer::Bytes> OnlyMessage(const char16_t* command) {
    const auto received = peer_.WaitFor(1);
    if (received.size() != 1 || received[0].message.command != command) {
      ADD_FAILURE() << received.size() << " messages received";
      return {};
    }
    return received[0].message.fields;
  }

  peer::ServicePeer peer_;
};
