// The response of one request: status, headers, and the body buffered in
// 4096-byte blocks. Headers go out with the first flush.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "isapi/isapi.h"

class CHttpResponse {
 public:
  static constexpr std::size_t kBufferSize = 4096;

  explicit CHttpResponse(EXTENSION_CONTROL_BLOCK* ecb);

  void SetStatusCode(int status) { status_ = status; }
  int StatusCode() const { return status_; }
  // Sets (or replaces) a header; false once the headers are sent.
  bool SetHeader(const char* name, const char* value);
  const std::string* Header(const char* name) const;

  // Buffers the bytes; flushes first when they would overflow the buffer,
  // and writes a body larger than the buffer straight through.
  bool Write(const void* data, std::size_t size);
  bool Write(const std::string& text) { return Write(text.data(), text.size()); }
  // Sends the headers (once) and the buffered bytes.
  bool Flush();

  // Ends the request with an error page instead of a reply of our own:
  // 500 sub-status 24 (token failure) or 503 (a reply that could not be
  // signed, or a handler asking the client to back off).
  void CompleteWithError(int status, int subStatus = 0);
  // 503 with "Retry-After: <seconds>": the server is too busy to take the
  // request now.
  void CompleteBusy(uint32_t retryAfterSeconds);
  bool HeadersSent() const { return headersSent_; }

 private:
  bool SendHeaders();
  bool WriteToClient(const void* data, std::size_t size);

  EXTENSION_CONTROL_BLOCK* ecb_;
  int status_ = 200;
  std::vector<std::pair<std::string, std::string>> headers_;
  std::string buffer_;
  bool headersSent_ = false;
};
