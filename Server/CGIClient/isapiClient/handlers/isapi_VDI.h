// VDI coordination (requestid 301): a virtual desktop asks before a task
// and reports while it runs and when it is done, so that the desktops of one
// pool do not all scan at once. Requests and replies are JSON, plain or in a
// string envelope; a reply goes back in the form its request came in.
#pragma once

#include <cstdint>

#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

class CIsapiVdiProcessor {
 public:
  static int32_t Run(const RequestParams& params, CHttpResponse& response);

  // The longest JSON document taken, in bytes, and its deepest nesting.
  static constexpr std::size_t kMaxDocument = 16384;
  static constexpr int kMaxDepth = 8;
};
