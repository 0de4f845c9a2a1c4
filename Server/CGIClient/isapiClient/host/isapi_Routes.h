// The routing table: requestid to handler. Entries whose handler has not
// been written yet answer as an unknown requestid does.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fw_HttpRequest.h"
#include "fw_HttpResponse.h"
#include "req_RequestParams.h"

using RequestHandler = int32_t (*)(const RequestParams& params, CHttpResponse& response);
using UploadHandler = int32_t (*)(const RequestParams& params, CHttpResponse& response, CHttpRequest& request,
                                  uint32_t diskThresholdStatus);

struct Route {
  int32_t requestId;
  const char* handlerName;
  RequestHandler handler;  // null until the handler exists
};

inline constexpr int32_t kUploadRequestId = 501;
inline constexpr std::size_t kRouteCount = 14;
extern const Route kRoutes[kRouteCount];
// requestid 501, after the disk guard; null until it exists.
extern const UploadHandler kUploadHandler;

const Route* FindRoute(int32_t requestId);
