#include "isapi/exchange.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>

#include "platform/dynamic_library.h"
#include "platform/errors.h"
#include "platform/text.h"

namespace isapi {
namespace {

constexpr uint32_t kErrorInvalidIndex = 1413;

// "Accept-Language" -> "HTTP_ACCEPT_LANGUAGE"
std::string CgiName(const std::string& header) {
  std::string name = "HTTP_";
  for (char c : header) name += c == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return name;
}

Exchange* Of(HCONN conn) { return static_cast<Exchange*>(conn); }

}  // namespace

std::string Response::Header(const std::string& name) const {
  for (const auto& [key, value] : headers) {
    if (plat::EqualsIgnoringAsciiCase(key, name)) return value;
  }
  return std::string();
}

bool Response::HasHeader(const std::string& name) const {
  for (const auto& header : headers) {
    if (plat::EqualsIgnoringAsciiCase(header.first, name)) return true;
  }
  return false;
}

Exchange::Exchange(Request request) : request_(std::move(request)) {
  method_ = request_.method;
  query_ = request_.queryString;
  contentType_ = request_.contentType;
  pathInfo_ = request_.url;
  pathTranslated_ = "C:\\inetpub\\wwwroot" + request_.url;
  const uint64_t total = std::min<uint64_t>(request_.announcedLength, UINT32_MAX);
  const std::size_t announced =
      request_.announcedLength == UINT64_MAX ? request_.body.size() : static_cast<std::size_t>(total);
  delivered_ = std::min<std::size_t>({request_.body.size(), announced, request_.preload});
  ecb_.cbSize = sizeof ecb_;
  ecb_.dwVersion = MAKELONG(HSE_VERSION_MINOR, HSE_VERSION_MAJOR);
  ecb_.ConnID = this;
  ecb_.lpszMethod = method_.data();
  ecb_.lpszQueryString = query_.data();
  ecb_.lpszPathInfo = request_.adapterMode && !request_.adapterKeepsPathInfo ? nullptr : pathInfo_.data();
  ecb_.lpszPathTranslated = request_.adapterMode ? nullptr : pathTranslated_.data();
  ecb_.cbTotalBytes = static_cast<DWORD>(announced);
  ecb_.cbAvailable = static_cast<DWORD>(delivered_);
  ecb_.lpbData = reinterpret_cast<LPBYTE>(request_.body.data());
  ecb_.lpszContentType = contentType_.data();
  ecb_.GetServerVariable = &Exchange::GetServerVariable;
  ecb_.WriteClient = &Exchange::WriteClient;
  ecb_.ReadClient = &Exchange::ReadClient;
  ecb_.ServerSupportFunction = &Exchange::ServerSupportFunction;
}

bool Exchange::Variable(const std::string& name, std::string* value) const {
  const Request& r = request_;
  if (name == "REQUEST_METHOD") *value = r.method;
  else if (name == "QUERY_STRING") *value = r.queryString;
  else if (name == "CONTENT_LENGTH") *value = std::to_string(ecb_.cbTotalBytes);
  else if (name == "CONTENT_TYPE") *value = r.contentType;
  else if (name == "REMOTE_ADDR" || name == "REMOTE_HOST") *value = r.remoteAddr;
  else if (name == "SERVER_NAME") *value = r.serverName;
  else if (name == "SERVER_PORT") *value = r.serverPort;
  else if (name == "SERVER_PROTOCOL") *value = "HTTP/1.1";
  else if (name == "URL" || name == "SCRIPT_NAME" || name == "PATH_INFO") *value = r.url;
  else if (name == "ALL_HTTP") {
    value->clear();
    for (const auto& [key, v] : r.headers) *value += CgiName(key) + ":" + v + "\n";
  } else if (name.rfind("HTTP_", 0) == 0) {
    for (const auto& [key, v] : r.headers) {
      if (CgiName(key) == name) {
        *value = v;
        return true;
      }
    }
    return false;
  } else {
    return false;
  }
  return true;
}

BOOL WINAPI Exchange::GetServerVariable(HCONN conn, LPSTR name, LPVOID buffer, LPDWORD size) {
  std::string value;
  if (name == nullptr || size == nullptr || !Of(conn)->Variable(name, &value)) {
    plat::SetLastError(kErrorInvalidIndex);
    return FALSE;
  }
  const auto needed = static_cast<DWORD>(value.size() + 1);
  if (buffer == nullptr || *size < needed) {
    *size = needed;
    plat::SetLastError(plat::kErrorInsufficientBuffer);
    return FALSE;
  }
  std::memcpy(buffer, value.c_str(), needed);
  *size = needed;
  return TRUE;
}

BOOL WINAPI Exchange::WriteClient(HCONN conn, LPVOID buffer, LPDWORD bytes, DWORD) {
  Exchange* self = Of(conn);
  std::lock_guard lock(self->mutex_);
  if (self->request_.clientGone) {
    plat::SetLastError(plat::kErrorBrokenPipe);
    return FALSE;
  }
  if (self->response_.status == 0) self->response_.status = 200;
  self->response_.body.append(static_cast<const char*>(buffer), *bytes);
  return TRUE;
}

BOOL WINAPI Exchange::ReadClient(HCONN conn, LPVOID buffer, LPDWORD size) {
  Exchange* self = Of(conn);
  if (buffer == nullptr || size == nullptr) {
    plat::SetLastError(plat::kErrorInvalidParameter);
    return FALSE;
  }
  const std::size_t end = std::min<std::size_t>(self->request_.body.size(), self->ecb_.cbTotalBytes);
  if (self->delivered_ >= end && self->request_.readMore) {
    uint32_t n = *size;
    if (!self->request_.readMore(buffer, &n)) {  // it set the error
      *size = 0;
      return FALSE;
    }
    *size = n;
    return TRUE;
  }
  const std::size_t left = end > self->delivered_ ? end - self->delivered_ : 0;
  const std::size_t n = std::min<std::size_t>(left, *size);
  if (n) std::memcpy(buffer, self->request_.body.data() + self->delivered_, n);
  self->delivered_ += n;
  *size = static_cast<DWORD>(n);
  return TRUE;
}

void Exchange::SendHeaders(const std::string& status, const std::string& headers) {
  std::lock_guard lock(mutex_);
  response_.statusLine = status;
  response_.status = std::atoi(status.c_str());
  std::size_t at = 0;
  while (at < headers.size()) {
    std::size_t end = headers.find("\r\n", at);
    if (end == std::string::npos) end = headers.size();
    std::string line = headers.substr(at, end - at);
    at = end + 2;
    std::size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::size_t valueStart = line.find_first_not_of(' ', colon + 1);
    response_.headers.emplace_back(line.substr(0, colon),
                                   valueStart == std::string::npos ? "" : line.substr(valueStart));
  }
}

BOOL WINAPI Exchange::ServerSupportFunction(HCONN conn, DWORD request, LPVOID buffer, LPDWORD size, LPDWORD type) {
  Exchange* self = Of(conn);
  switch (request) {
    case HSE_REQ_SEND_RESPONSE_HEADER_EX: {
      auto* info = static_cast<HSE_SEND_HEADER_EX_INFO*>(buffer);
      if (info == nullptr) break;
      self->SendHeaders(info->pszStatus ? std::string(info->pszStatus, info->cchStatus) : "200 OK",
                        info->pszHeader ? std::string(info->pszHeader, info->cchHeader) : "");
      return TRUE;
    }
    case HSE_REQ_SEND_RESPONSE_HEADER:
      self->SendHeaders(buffer ? static_cast<const char*>(buffer) : "200 OK",
                        type ? reinterpret_cast<const char*>(type) : "");
      return TRUE;
    case HSE_REQ_DONE_WITH_SESSION:
      self->MarkDone();
      return TRUE;
    case HSE_REQ_GET_IMPERSONATION_TOKEN:
      if (buffer == nullptr || self->request_.impersonationToken == nullptr) break;
      *static_cast<HANDLE*>(buffer) = self->request_.impersonationToken;
      return TRUE;
    case HSE_REQ_IS_KEEP_CONN:
      if (buffer) *static_cast<BOOL*>(buffer) = TRUE;
      return TRUE;
    default:
      break;
  }
  (void)size;
  plat::SetLastError(plat::kErrorInvalidParameter);
  return FALSE;
}

void Exchange::MarkDone() {
  std::function<void()> callback;
  {
    // Notified under the lock: a waiter that sees the request done may
    // destroy this exchange, its condition variable with it, at once.
    std::lock_guard lock(mutex_);
    if (response_.done) return;
    response_.done = true;
    callback = onDone_;
    doneSignal_.notify_all();
  }
  if (callback) callback();  // a copy: the exchange may be gone by now
}

bool Exchange::WaitDone(uint32_t timeoutMs) {
  std::unique_lock lock(mutex_);
  return doneSignal_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return response_.done; });
}

bool Exchange::IsDone() {
  std::lock_guard lock(mutex_);
  return response_.done;
}

Response Exchange::TakeResponse() {
  std::lock_guard lock(mutex_);
  return response_;
}

// An extension stays loaded for the life of the process, as the web hosts
// keep it: its process-wide objects live as long as it may be called, and
// it is never unmapped under a thread of its own.
Module::~Module() = default;

bool Module::Load(const std::string& path, std::string* error) {
  static std::mutex loadedMutex;
  static auto* loaded = new std::vector<std::unique_ptr<plat::DynamicLibrary>>();
  auto owned = std::make_unique<plat::DynamicLibrary>();
  plat::DynamicLibrary* library = owned.get();
  {
    std::lock_guard lock(loadedMutex);
    loaded->push_back(std::move(owned));
  }
  handle_ = library;
  if (!library->Load(plat::FromUtf8(path))) {
    *error = library->Error();
    return false;
  }
  GetExtensionVersion = reinterpret_cast<PFN_GETEXTENSIONVERSION>(library->Symbol("GetExtensionVersion"));
  HttpExtensionProc = reinterpret_cast<PFN_HTTPEXTENSIONPROC>(library->Symbol("HttpExtensionProc"));
  TerminateExtension = reinterpret_cast<PFN_TERMINATEEXTENSION>(library->Symbol("TerminateExtension"));
  if (!GetExtensionVersion || !HttpExtensionProc || !TerminateExtension) {
    *error = "the module lacks an ISAPI entry point";
    return false;
  }
  return true;
}

void* Module::Symbol(const char* name) const {
  return handle_ ? static_cast<plat::DynamicLibrary*>(handle_)->Symbol(name) : nullptr;
}

}  // namespace isapi
