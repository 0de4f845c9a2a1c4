// A test extension that reads every body byte through ReadClient and answers
// "<bytes> <FNV-1a of the bytes> <cbTotalBytes>": it shows what reached the
// extension, and how, without the real handlers' limits in the way. In IIS
// mode it answers from a thread of its own, as an asynchronous extension does,
// unless the query says "inline".
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "isapi/isapi.h"

namespace {

void Serve(EXTENSION_CONTROL_BLOCK* ecb, bool asynchronous) {
  uint64_t hash = 1469598103934665603ull;
  uint64_t bytes = 0;
  auto add = [&](const unsigned char* data, DWORD n) {
    for (DWORD i = 0; i < n; ++i) hash = (hash ^ data[i]) * 1099511628211ull;
    bytes += n;
  };
  add(ecb->lpbData, ecb->cbAvailable);
  unsigned char buffer[7000];  // an odd size: reads do not line up with the host's pieces
  bool gone = false;
  while (bytes < ecb->cbTotalBytes) {
    DWORD n = sizeof buffer;
    if (!ecb->ReadClient(ecb->ConnID, buffer, &n)) {
      gone = true;
      break;
    }
    if (n == 0) break;
    add(buffer, n);
  }
  char text[96];
  std::snprintf(text, sizeof text, "%llu %016llx %lu%s", static_cast<unsigned long long>(bytes),
                static_cast<unsigned long long>(hash), static_cast<unsigned long>(ecb->cbTotalBytes),
                gone ? " gone" : "");
  std::string headers = "Content-Type: text/plain\r\n\r\n";
  HSE_SEND_HEADER_EX_INFO info{};
  info.pszStatus = "200 OK";
  info.cchStatus = 6;
  info.pszHeader = headers.c_str();
  info.cchHeader = static_cast<DWORD>(headers.size());
  ecb->ServerSupportFunction(ecb->ConnID, HSE_REQ_SEND_RESPONSE_HEADER_EX, &info, nullptr, nullptr);
  DWORD length = static_cast<DWORD>(std::strlen(text));
  ecb->WriteClient(ecb->ConnID, text, &length, 0);
  if (asynchronous) ecb->ServerSupportFunction(ecb->ConnID, HSE_REQ_DONE_WITH_SESSION, nullptr, nullptr, nullptr);
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) BOOL GetExtensionVersion(HSE_VERSION_INFO* version) {
  version->dwExtensionVersion = MAKELONG(0, 8);
  std::strcpy(version->lpszExtensionDesc, "echo");
  return TRUE;
}

__attribute__((visibility("default"))) DWORD HttpExtensionProc(EXTENSION_CONTROL_BLOCK* ecb) {
  // Adapter mode, or asked to ("?inline"): synchronous, on the caller's thread.
  if (ecb->lpszPathInfo == nullptr || std::strstr(ecb->lpszQueryString, "inline") != nullptr) {
    Serve(ecb, false);
    return HSE_STATUS_SUCCESS;
  }
  std::thread([ecb] { Serve(ecb, true); }).detach();
  return HSE_STATUS_PENDING;
}

__attribute__((visibility("default"))) BOOL TerminateExtension(DWORD) { return TRUE; }

}  // extern "C"
