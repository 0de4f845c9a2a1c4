// The update request (requestid 205): the server's current update order,
// the same for every client; the request carries no parameter.
#pragma once

#include <cstdint>

#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

int32_t ProcessRqUpd(const RequestParams& params, CHttpResponse& response);
