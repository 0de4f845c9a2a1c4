#include "inprocess_host.h"

#include "platform/thread_token.h"

extern "C" {
BOOL WINAPI GetExtensionVersion(HSE_VERSION_INFO* pVer);
DWORD WINAPI HttpExtensionProc(EXTENSION_CONTROL_BLOCK* pECB);
BOOL WINAPI TerminateExtension(DWORD dwFlags);
}

EntryPoints LinkedEntryPoints() {
  return EntryPoints{&GetExtensionVersion, &HttpExtensionProc, &TerminateExtension};
}

isapi::Response InProcessHost::Send(isapi::Request request, DWORD* returnedStatus) {
  void* token = request.impersonationToken ? nullptr : plat::CreateImpersonationToken();
  if (token) request.impersonationToken = token;
  isapi::Exchange exchange(std::move(request));
  DWORD status = entry_.httpExtensionProc(exchange.Ecb());
  if (returnedStatus) *returnedStatus = status;
  if (status == HSE_STATUS_PENDING) {
    exchange.WaitDone(30000);
  } else {
    exchange.MarkDone();
  }
  isapi::Response response = exchange.TakeResponse();
  plat::CloseImpersonationToken(token);
  return response;
}

isapi::Request InProcessHost::Get(const std::string& query, bool adapter) {
  isapi::Request request;
  request.method = "GET";
  request.queryString = query;
  request.adapterMode = adapter;
  return request;
}

isapi::Request InProcessHost::Post(const std::string& body, bool adapter) {
  isapi::Request request;
  request.method = "POST";
  request.contentType = "application/x-www-form-urlencoded";
  request.body = body;
  request.adapterMode = adapter;
  return request;
}
