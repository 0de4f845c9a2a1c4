// The extension's entry points, as the web server calls them.
#include "ext_Extension.h"
#include "isapi/isapi.h"

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

}  // extern "C"
