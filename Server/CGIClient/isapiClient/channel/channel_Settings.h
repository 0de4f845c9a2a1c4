// The server's pipes and the channel's timing.
#pragma once

#include <cstdint>

inline constexpr char16_t kCommandHandlerPipe[] = u"Vanta Labs VGCR Command Handler Manager";
inline constexpr char16_t kCommandHandler2Pipe[] = u"Vanta Labs VGCR Command Handler2 Manager";
inline constexpr char16_t kServerNotifyPipe[] = u"VgcServerNamePipe";
inline constexpr char16_t kThreatLogPipe[] = u"VgcThreatLogServerNamePipe";

// How long a round trip waits for the service's reply. The service answers
// from its database in milliseconds; a reply that takes 10 s means a hung or
// swamped service, and the worker is better given back (the client then
// gets -5 and polls again) than held: the pool has few workers, and every one
// stuck on a dead service is a request that cannot be served. It is well
// under the web servers' own request time-outs, so the client always gets
// our answer rather than a dropped connection.
inline constexpr uint32_t kDefaultReplyTimeoutMs = 10000;

// The reply time-out in force: kDefaultReplyTimeoutMs unless a test has
// shortened it to keep its fault cases quick.
uint32_t ChannelReplyTimeoutMs();
void SetChannelReplyTimeoutMs(uint32_t ms);
