// The service status report (requestid 103).
#pragma once

#include <cstdint>
#include <string>

#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

// Reports the client's protection status and checks that the server still
// knows the client. *status comes in as 1; on failure it is -5 (the round
// trip failed) or -39 (the client is unknown).
bool ReportClientProtectionStatus(const RequestParams& params, const std::u16string& uid, int32_t* status);

int32_t ProcessOnServiceStatus(const RequestParams& params, CHttpResponse& response);
