// The version-1 text commands' pipe senders: a UTF-16LE text (command name
// and arguments joined by tabs, no terminator) to the command-handler
// service, one way or as a round trip whose reply is a UTF-16LE text.
#pragma once

#include <cstdint>
#include <string>

bool cmdal_SendText(const char16_t* text, uint32_t byteLength);

// Reads the reply in pieces of at most 2046 bytes until the service closes
// the reply pipe. False when the request could not be delivered or no reply
// ended within the reply time-out; an empty reply is a success.
bool cmdal_SendTextAndRecv(const char16_t* text, uint32_t byteLength, const char16_t* replyPipeName,
                           std::u16string* reply);
