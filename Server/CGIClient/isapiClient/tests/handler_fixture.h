// What the handler tests share: the extension in this process behind its
// real entry points, a stand-in for the service, and readers of the fields
// of a fixed record as the stand-in received it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "channel_fixture.h"
#include "inprocess_host.h"
#include "platform/text.h"
#include "trace_sink.h"

inline constexpr char kUid[] = "3F2504E0-4F89-11D3-9A0C-0305E82C3301";

class Handlers : public WithServicePeer {
 protected:
  static void SetUpTestSuite() {
    HSE_VERSION_INFO version{};
    ASSERT_TRUE(LinkedEntryPoints().getExtensionVersion(&version));
  }
  static void TearDownTestSuite() { LinkedEntryPoints().terminateExtension(HSE_TERM_MUST_UNLOAD); }
  isapi::Response Get(const std::string& query, bool adapter = false) {
    return host_.Send(InProcessHost::Get(query, adapter));
  }
  InProcessHost host_{LinkedEntryPoints()};
};

inline std::u16string TextAt(const peer::Bytes& block, std::size_t offset, std::size_t bytes) {
  return peer::AsWString(peer::Bytes(block.begin() + static_cast<std::ptrdiff_t>(offset),
                                     block.begin() + static_cast<std::ptrdiff_t>(offset + bytes)));
}
inline uint32_t U32At(const peer::Bytes& block, std::size_t offset) {
  return peer::AsU32(peer::Bytes(block.begin() + static_cast<std::ptrdiff_t>(offset),
                                 block.begin() + static_cast<std::ptrdiff_t>(offset + 4)));
}
inline unsigned U16At(const peer::Bytes& block, std::size_t offset) { return block[offset] | block[offset + 1] << 8; }
