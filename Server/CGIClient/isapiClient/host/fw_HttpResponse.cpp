#include "fw_HttpResponse.h"

#include <cstring>
#include <string>

#include "platform/text.h"

namespace {

const char* ReasonPhrase(int status) {
  switch (status) {
    case 200: return "OK";
    case 400: return "Bad Request";
    case 404: return "Not Found";
    case 500: return "Internal Server Error";
    case 503: return "Service Unavailable";
    default: return "Status";
  }
}

}  // namespace

CHttpResponse::CHttpResponse(EXTENSION_CONTROL_BLOCK* ecb) : ecb_(ecb) { buffer_.reserve(kBufferSize); }

bool CHttpResponse::SetHeader(const char* name, const char* value) {
  if (headersSent_) return false;
  for (auto& header : headers_) {
    if (plat::EqualsIgnoringAsciiCase(header.first, name)) {
      header.second = value;
      return true;
    }
  }
  headers_.emplace_back(name, value);
  return true;
}

const std::string* CHttpResponse::Header(const char* name) const {
  for (const auto& header : headers_) {
    if (plat::EqualsIgnoringAsciiCase(header.first, name)) return &header.second;
  }
  return nullptr;
}

bool CHttpResponse::SendHeaders() {
  if (headersSent_) return true;
  headersSent_ = true;
  std::string status = std::to_string(status_) + " " + ReasonPhrase(status_);
  std::string text;
  for (const auto& [name, value] : headers_) text += name + ": " + value + "\r\n";
  text += "\r\n";
  HSE_SEND_HEADER_EX_INFO info{};
  info.pszStatus = status.c_str();
  info.cchStatus = static_cast<DWORD>(status.size());
  info.pszHeader = text.c_str();
  info.cchHeader = static_cast<DWORD>(text.size());
  info.fKeepConn = TRUE;
  ecb_->dwHttpStatusCode = static_cast<DWORD>(status_);
  return ecb_->ServerSupportFunction(ecb_->ConnID, HSE_REQ_SEND_RESPONSE_HEADER_EX, &info, nullptr, nullptr) != FALSE;
}

bool CHttpResponse::WriteToClient(const void* data, std::size_t size) {
  if (size == 0) return true;
  DWORD n = static_cast<DWORD>(size);
  return ecb_->WriteClient(ecb_->ConnID, const_cast<void*>(data), &n, HSE_IO_SYNC) != FALSE;
}

bool CHttpResponse::Write(const void* data, std::size_t size) {
  if (buffer_.size() + size > kBufferSize && !Flush()) return false;
  if (size > kBufferSize) return SendHeaders() && WriteToClient(data, size);
  buffer_.append(static_cast<const char*>(data), size);
  return true;
}

bool CHttpResponse::Flush() {
  if (!SendHeaders()) return false;
  bool ok = WriteToClient(buffer_.data(), buffer_.size());
  buffer_.clear();
  return ok;
}

void CHttpResponse::CompleteBusy(uint32_t retryAfterSeconds) {
  if (headersSent_) return;
  const std::string seconds = std::to_string(retryAfterSeconds);
  buffer_.clear();
  headers_.clear();
  status_ = 503;
  SetHeader("Content-Type", "text/html");
  SetHeader("Retry-After", seconds.c_str());
  buffer_ = "<html><body>The server is too busy; try again later.</body></html>";
  Flush();
}

void CHttpResponse::CompleteWithError(int status, int subStatus) {
  if (headersSent_) return;
  buffer_.clear();
  headers_.clear();
  status_ = status;
  SetHeader("Content-Type", "text/html");
  const char* page = status == 500 && subStatus == 24 ? "<html><body>A server error has occurred.</body></html>"
                     : status == 503                 ? "<html><body>The service is unavailable.</body></html>"
                                                     : "<html><body>A server error has occurred.</body></html>";
  buffer_ = page;
  Flush();
}
