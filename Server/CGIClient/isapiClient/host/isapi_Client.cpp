// The extension's entry points, as the web server calls them, and two of
// our own for a host that watches it (docs/operations.md).
#include <cstring>
#include <string>

#include "ext_Extension.h"
#include "isapi/isapi.h"
#include "mon_Health.h"
#include "platform/errors.h"

#if defined(_WIN32)
#define VGCR_EXPORT
#else
#define VGCR_EXPORT __attribute__((visibility("default")))
#endif

extern "C" {

VGCR_EXPORT BOOL WINAPI GetExtensionVersion(HSE_VERSION_INFO* pVer) { return TheExtension().GetExtensionVersion(pVer); }

VGCR_EXPORT DWORD WINAPI HttpExtensionProc(EXTENSION_CONTROL_BLOCK* pECB) {
  return TheExtension().HttpExtensionProc(pECB);
}

VGCR_EXPORT BOOL WINAPI TerminateExtension(DWORD dwFlags) { return TheExtension().TerminateExtension(dwFlags); }

// The counters as Prometheus text, not terminated. *size holds the buffer's
// capacity and gets the text's length; a buffer too small (or none) gets
// nothing, FALSE and ERROR_INSUFFICIENT_BUFFER, and *size the length needed.
VGCR_EXPORT BOOL WINAPI VgcrGetMetrics(char* buffer, DWORD* size) {
  if (size == nullptr) {
    plat::SetLastError(plat::kErrorInvalidParameter);
    return FALSE;
  }
  const std::string text = TheExtension().Metrics();
  const bool fits = buffer != nullptr && text.size() <= *size;
  *size = static_cast<DWORD>(text.size());
  if (!fits) {
    plat::SetLastError(plat::kErrorInsufficientBuffer);
    return FALSE;
  }
  std::memcpy(buffer, text.data(), text.size());
  return TRUE;
}

// One round trip to the command-handler service: TRUE when it answered.
// `reason` (of `size` bytes, NUL-terminated, cut to fit) says what happened.
VGCR_EXPORT BOOL WINAPI VgcrCheckHealth(char* reason, DWORD size) {
  std::string why;
  const bool healthy = mon::CheckService(&why);
  if (reason != nullptr && size > 0) {
    const std::size_t n = why.size() < size - 1 ? why.size() : size - 1;
    std::memcpy(reason, why.data(), n);
    reason[n] = '\0';
  }
  return healthy ? TRUE : FALSE;
}

}  // extern "C"
