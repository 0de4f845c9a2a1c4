// What the request handlers share besides the identity fields: numbers,
// and the two ways of sending a command record.
#pragma once

#include <cstdint>
#include <string>

#include "channel/ser_MsgSerializer.h"
#include "host/req_RequestParams.h"

// A numeric parameter, read raw and converted as strtol (base 10) does
// with a 32-bit long; false (and 0) when absent.
bool ReadNumber(const RequestParams& params, const char* name, int32_t* value);

// A handler's UTF-16 text in the ANSI code page (characters it cannot hold
// become "?"), for the records that carry narrow texts.
std::string NarrowAnsi(const std::u16string& text);

// Builds the command with the record as its body and sends it one way; false
// when it could not be built or delivered. Mode 2 makes the message
// file-backed from the start.
bool SendRecord(const char16_t* command, ISerializable& record, int mode = 1);

// Sends the command with the record as its body and reads the service's
// answer into `answer`; false when it could not be delivered, no answer
// came within the reply time-out, or the answer is too short for its record.
bool AskService(const char16_t* command, ISerializable& record, ISerializable& answer);

// The same in two steps, for a handler with work between them: the round
// trip (the answer is then held by `message`), and reading the answer.
bool SendForAnswer(CMsgSerializer& message, ISerializable& record);
bool ReadAnswer(CMsgSerializer& message, ISerializable& answer);
