// The client start registration (requestid 101).
#pragma once

#include <cstdint>

#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

int32_t ProcessOnStart(const RequestParams& params, CHttpResponse& response);
