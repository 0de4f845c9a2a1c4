// What the request handlers share: reading numbers and checking a uid.
#pragma once

#include <cstdint>
#include <string>

#include "channel/ser_Serializer.h"
#include "host/req_RequestParams.h"

// A numeric parameter, read raw and converted with strtol (base 10); false
// (and 0) when absent.
bool ReadNumber(const RequestParams& params, const char* name, long* value);

// "{" + uid + "}" must parse as a GUID (CLSIDFromString) inside a COM
// scope; otherwise "This is an invalid UID." is traced at level 5 from the
// handler's source and the answer is false.
bool IsValidUid(const std::u16string& uid, const char16_t* traceSource, const char16_t* handlerName);

// Builds the command with the record as its body and sends it one way; false
// when it could not be built or delivered.
bool SendRecord(const char16_t* command, ISerializable& record);
