// The OPP request (requestid 203): function type 0 fetches the client's OPP
// settings; 1 and 2 report that the client activated or restored its policy.
#pragma once

#include <cstdint>

#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

int32_t ProcessRqOpp(const RequestParams& params, CHttpResponse& response);
