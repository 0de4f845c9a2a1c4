// The request of one exchange: method, query string, body access and the
// decoded parameters.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "isapi/isapi.h"
#include "fw_MultipartReader.h"
#include "req_RequestParams.h"

class CHttpRequest {
 public:
  static constexpr uint32_t kMaxFormSize = 49152;

  // False when a POST body announces more than maxFormSize bytes: such a
  // request is not served. A multipart/form-data body is read as it
  // arrives instead (its fields obey the limit, its file part the upload's
  // own), so its length is not held against it.
  bool Initialize(EXTENSION_CONTROL_BLOCK* ecb, uint32_t maxFormSize);

  const char* Method() const { return ecb_->lpszMethod ? ecb_->lpszMethod : ""; }
  const char* QueryString() const { return ecb_->lpszQueryString ? ecb_->lpszQueryString : ""; }
  const char* ContentType() const { return ecb_->lpszContentType ? ecb_->lpszContentType : ""; }
  uint32_t TotalBytes() const { return ecb_->cbTotalBytes; }
  uint32_t AvailableBytes() const { return ecb_->cbAvailable; }
  const unsigned char* AvailableData() const { return ecb_->lpbData; }
  // ReadClient: *size in, the room; out, the bytes read (0 at the end).
  bool ReadClient(void* buffer, uint32_t* size);
  // The caller's impersonation token (HSE_REQ_GET_IMPERSONATION_TOKEN).
  void* ImpersonationToken();

  // A multipart body: its fields go into the parameters; the reader stays
  // at the first file part, if there was one.
  CMultipartReader::Fields ReadMultipartFields(const std::string& boundary);
  // The reader standing at the body's file part; null when there is none.
  CMultipartReader* FilePart() { return filePart_ ? multipart_.get() : nullptr; }
  uint64_t MultipartBytesRead() const { return multipart_ ? multipart_->BodyBytesRead() : 0; }

  RequestParams& Params() { return params_; }
  const RequestParams& Params() const { return params_; }
  EXTENSION_CONTROL_BLOCK* Ecb() const { return ecb_; }

 private:
  EXTENSION_CONTROL_BLOCK* ecb_ = nullptr;
  RequestParams params_;
  std::unique_ptr<CMultipartReader> multipart_;
  bool filePart_ = false;
};
