// The client reports of the update unit: the logon user report
// (requestid 112).
#pragma once

#include <cstdint>

#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

int32_t ProcessOnLogonUser(const RequestParams& params, CHttpResponse& response);
