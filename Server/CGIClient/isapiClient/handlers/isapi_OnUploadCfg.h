// The configuration upload (requestid 111): a client sends the scan
// settings it runs locally, which become its own settings on the server.
#pragma once

#include <cstdint>

#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

int32_t ProcessOnUploadCfg(const RequestParams& params, CHttpResponse& response);
