// The version-2 command senders: a finished CMsgSerializer goes to the
// command-handler service one way, or as a round trip whose reply is loaded
// back into the same serializer. They never raise: every failure is a trace
// line and false.
#pragma once

#include "ser_MsgSerializer.h"

bool cmdal2_Send(CMsgSerializer& message);

// The reply pipe is named by the caller; by convention it is the message's
// identifier (message.Identifier()), which the service reads from the
// prologue and connects back to.
bool cmdal2_SendAndRecv(CMsgSerializer& message, const char16_t* replyPipeName);

// The same round trip on "Vanta Labs VGCR Command Handler2 Manager".
bool cmdal2_SendAndRecvHandler2(CMsgSerializer& message, const char16_t* replyPipeName);
