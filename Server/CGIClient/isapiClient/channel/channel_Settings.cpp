#include "channel_Settings.h"

#include <atomic>

namespace {
std::atomic<uint32_t> g_replyTimeoutMs{kDefaultReplyTimeoutMs};
}

uint32_t ChannelReplyTimeoutMs() { return g_replyTimeoutMs.load(std::memory_order_relaxed); }
void SetChannelReplyTimeoutMs(uint32_t ms) { g_replyTimeoutMs.store(ms ? ms : kDefaultReplyTimeoutMs); }
