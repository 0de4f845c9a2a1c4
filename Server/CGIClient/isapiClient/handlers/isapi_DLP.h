// The DLP settings request (requestid 321): the client's data-loss
// prevention deployment settings.
#pragma once

#include <cstdint>

#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

int32_t ProcessDLP(const RequestParams& params, CHttpResponse& response);
