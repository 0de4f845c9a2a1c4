// What the handler tests share: the extension in this process behind its
// real entry points, a stand-in for the service, and readers of the fields
// of a fixed record as the stand-in received it.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "channel_fixture.h"
#include "inprocess_host.h"
#include "platform/text.h"
#include "trace_sink.h"

inline constexpr char kUid[] = "3F2504E0-4F89-11D3-9A0C-0305E82C3301";

// The extension, loaded once per suite, behind an in-process web server.
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

// A version-1 reader's answer: the text, UTF-16LE.
inline peer::Reply TextAnswer(const std::u16string& text) {
  peer::Reply reply;
  reply.bytes = peer::TextBytes(text);
  return reply;
}

// A version-2 answer: the request's prologue, then the fields `fill` adds.
inline peer::Reply MessageAnswer(std::function<void(peer::Builder&)> fill) {
  peer::Reply reply;
  reply.make = [fill](const peer::Received& r) {
    peer::Builder b;
    b.Prologue(r.message.command, r.message.identifier);
    fill(b);
    return b.bytes();
  };
  return reply;
}

inline peer::Reply Answer(peer::ReplyKind kind) {
  peer::Reply reply;
  reply.kind = kind;
  return reply;
}

// The request of that command among those received; null when none came.
inline const peer::Received* Find(const std::vector<peer::Received>& received, const std::u16string& command) {
  for (const auto& r : received) {
    if (r.Command() == command) return &r;
  }
  return nullptr;
}

inline std::vector<std::u16string> Fields(std::initializer_list<std::u16string> fields) { return fields; }
