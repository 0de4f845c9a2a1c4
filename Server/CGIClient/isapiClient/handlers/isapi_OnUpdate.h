// The client reports of the update unit: the update report (requestid 102)
// and the logon user report (requestid 112).
#pragma once

#include <cstdint>

#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

// Function type 1: an update's outcome, one way; 2: the same, answered
// whether another update is due; 3: the signing certificate the client now
// trusts.
int32_t ProcessOnUpdate(const RequestParams& params, CHttpResponse& response);
int32_t ProcessOnLogonUser(const RequestParams& params, CHttpResponse& response);
