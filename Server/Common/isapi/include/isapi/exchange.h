// The web-server side of one ISAPI request: the extension control block
// with its callbacks (server variables, ReadClient, WriteClient, the server
// support functions), and what the extension answered. Shared by isapi-host
// and the in-process test hosts.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "isapi/isapi.h"

namespace isapi {

using Headers = std::vector<std::pair<std::string, std::string>>;

struct Request {
  std::string method = "GET";
  std::string url = "/vigilcrest/cgi/isapiClient.dll";
  std::string queryString;  // exactly as the client sent it
  std::string contentType;
  std::string body;         // the bytes the client sent
  // The Content-Length announced; more than body.size() makes a body that
  // ends early (ReadClient then delivers 0 bytes).
  uint64_t announcedLength = UINT64_MAX;
  // Bytes handed over with the control block (cbAvailable), as IIS
  // preloads; the rest comes through ReadClient.
  uint32_t preload = 49152;
  // A body that is still arriving: ReadClient takes the bytes past `body`
  // from here (blocking; 0 bytes at the end, false with the last error set
  // when the bytes cannot come).
  std::function<bool(void* buffer, uint32_t* size)> readMore;
  Headers headers;
  std::string remoteAddr = "127.0.0.1";
  std::string serverName = "localhost";
  std::string serverPort = "80";
  // Adapter mode: path-info and path-translated are null and the call is
  // synchronous. Some adapters hand a path-info but no path-translated.
  bool adapterMode = false;
  bool adapterKeepsPathInfo = false;
  // The client is gone: every WriteClient fails.
  bool clientGone = false;
  // What HSE_REQ_GET_IMPERSONATION_TOKEN hands out (null: the request fails).
  void* impersonationToken = nullptr;
};

struct Response {
  int status = 0;
  std::string statusLine;
  Headers headers;
  std::string body;
  bool done = false;       // HSE_REQ_DONE_WITH_SESSION, or the call returned
  // The header's value, or "" (names compare without case).
  std::string Header(const std::string& name) const;
  bool HasHeader(const std::string& name) const;
};

class Exchange {
 public:
  explicit Exchange(Request request);
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  EXTENSION_CONTROL_BLOCK* Ecb() { return &ecb_; }
  const Request& request() const { return request_; }

  // Called once when the extension completes the request (DONE_WITH_SESSION).
  void OnDone(std::function<void()> callback) { onDone_ = std::move(callback); }
  // The host marks a synchronous call's return as the end of the request.
  void MarkDone();
  bool WaitDone(uint32_t timeoutMs);
  Response TakeResponse();
  bool IsDone();

 private:
  static BOOL WINAPI GetServerVariable(HCONN conn, LPSTR name, LPVOID buffer, LPDWORD size);
  static BOOL WINAPI WriteClient(HCONN conn, LPVOID buffer, LPDWORD bytes, DWORD reserved);
  static BOOL WINAPI ReadClient(HCONN conn, LPVOID buffer, LPDWORD size);
  static BOOL WINAPI ServerSupportFunction(HCONN conn, DWORD request, LPVOID buffer, LPDWORD size, LPDWORD type);

  bool Variable(const std::string& name, std::string* value) const;
  void SendHeaders(const std::string& status, const std::string& headers);

  Request request_;
  EXTENSION_CONTROL_BLOCK ecb_{};
  std::string method_, query_, contentType_, pathInfo_, pathTranslated_;
  std::size_t delivered_ = 0;  // body bytes handed over so far
  std::mutex mutex_;
  std::condition_variable doneSignal_;
  Response response_;
  std::function<void()> onDone_;
};

// An extension module and its three entry points.
class Module {
 public:
  ~Module();
  bool Load(const std::string& path, std::string* error);
  PFN_GETEXTENSIONVERSION GetExtensionVersion = nullptr;
  PFN_HTTPEXTENSIONPROC HttpExtensionProc = nullptr;
  PFN_TERMINATEEXTENSION TerminateExtension = nullptr;
  void* Symbol(const char* name) const;

 private:
  void* handle_ = nullptr;
};

}  // namespace isapi
