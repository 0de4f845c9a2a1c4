// The settings-file request (requestid 201): one section of the client's
// settings file, after the server has confirmed it knows the client.
#pragma once

#include <cstddef>
#include <cstdint>

#include "hdl_Settings.h"
#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

// Function type -> settings query and the configuration record it resets.
extern const SettingsRow kRqIniRows[];
extern const std::size_t kRqIniRowCount;

int32_t ProcessRqIni(const RequestParams& params, CHttpResponse& response);
