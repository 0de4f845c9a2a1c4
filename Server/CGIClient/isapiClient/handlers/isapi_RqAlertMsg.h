// The alert message request (requestid 204): the text of one kind of alert
// message, the same for every client.
#pragma once

#include <cstdint>

#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

int32_t ProcessRqAlertMsg(const RequestParams& params, CHttpResponse& response);
