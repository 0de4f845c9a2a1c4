// The request of one exchange: method, query string, body access and the
// decoded parameters.
#pragma once

#include <cstdint>
#include <string>

#include "isapi/isapi.h"
#include "req_RequestParams.h"

class CHttpRequest {
 public:
  static constexpr uint32_t kMaxFormSize = 49152;

  // False when a POST body, of whatever content type, announces more than
  // maxFormSize bytes: such a request is not served.
  bool Initialize(EXTENSION_CONTROL_BLOCK* ecb, uint32_t maxFormSize);

  const char* Method() const { return ecb_->lpszMethod ? ecb_->lpszMethod : ""; }
  const char* QueryString() const { return ecb_->lpszQueryString ? ecb_->lpszQueryString : ""; }
  uint32_t TotalBytes() const { return ecb_->cbTotalBytes; }
  uint32_t AvailableBytes() const { return ecb_->cbAvailable; }
  const unsigned char* AvailableData() const { return ecb_->lpbData; }
  // ReadClient: *size in, the room; out, the bytes read (0 at the end).
  bool ReadClient(void* buffer, uint32_t* size);
  // The caller's impersonation token (HSE_REQ_GET_IMPERSONATION_TOKEN).
  void* ImpersonationToken();

  RequestParams& Params() { return params_; }
  const RequestParams& Params() const { return params_; }
  EXTENSION_CONTROL_BLOCK* Ecb() const { return ecb_; }

 private:
  EXTENSION_CONTROL_BLOCK* ecb_ = nullptr;
  RequestParams params_;
};
