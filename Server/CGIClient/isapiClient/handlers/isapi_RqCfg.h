// The configuration request (requestid 202): one block of the client's
// scan or protection configuration.
#pragma once

#include <cstddef>
#include <cstdint>

#include "hdl_Settings.h"
#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

extern const SettingsRow kRqCfgRows[];
extern const std::size_t kRqCfgRowCount;

int32_t ProcessRqCfg(const RequestParams& params, CHttpResponse& response);
