// The heartbeat poll (requestid 207).
#pragma once

#include <cstdint>

#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

int32_t ProcessPollingSetting(const RequestParams& params, CHttpResponse& response);
