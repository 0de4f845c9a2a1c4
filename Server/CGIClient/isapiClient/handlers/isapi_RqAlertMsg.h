// The alert message request (requestid 204): the text of one kind of alert
// message, the same for every client.
#pragma once

#include <cstdint>

#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

// The message kinds served; every other function type is refused.
inline constexpr int32_t kAlertMessageKinds[] = {0, 1, 3, 5, 7, 8, 12, 13, 128};

int32_t ProcessRqAlertMsg(const RequestParams& params, CHttpResponse& response);
