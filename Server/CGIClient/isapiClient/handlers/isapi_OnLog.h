// The log report (requestid 110): one log entry of a client, handed to the
// server one way.
#pragma once

#include <cstdint>
#include <string>

#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

int32_t ProcessOnLog(const RequestParams& params, CHttpResponse& response);

// The client's log type to the server's record type; false for a type the
// server has no record for.
bool ConvertLogType(int32_t logType, int32_t* recordType);

// Log type 13: "PFWcountstr" holds a text and six counts, split at tabs and
// commas; they go to the server as "CMDHL_PFW_UPDATE_CFW_COUNT". False when
// the value is missing or malformed, or the command could not be sent.
bool ProcessFirewallLogCount(const std::u16string& uid, const RequestParams& params);
