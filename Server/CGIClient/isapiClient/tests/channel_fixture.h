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

  peer::ServicePeer peer_;
};
