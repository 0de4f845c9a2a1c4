#include "fw_IsapiExtension.h"

#include <cstring>

#include "fw_HttpResponse.h"

BOOL CIsapiExtensionBase::FrameworkGetExtensionVersion(HSE_VERSION_INFO* version) {
  if (version == nullptr) return FALSE;
  version->dwExtensionVersion = MAKELONG(HSE_VERSION_MINOR, HSE_VERSION_MAJOR);
  std::memset(version->lpszExtensionDesc, 0, sizeof version->lpszExtensionDesc);
  std::strncpy(version->lpszExtensionDesc, "isapiClient", sizeof version->lpszExtensionDesc - 1);
  return TRUE;
}

BOOL CIsapiExtensionBase::SetCriticalIsapiError(uint32_t resourceId) {
  criticalError_ = resourceId;
  return TRUE;
}

void CIsapiExtensionBase::UninitializeFramework() { pool_.Shutdown(); }

bool CIsapiExtensionBase::InitializeThreadPool(unsigned workers) {
  return pool_.Initialize(workers, [this](EXTENSION_CONTROL_BLOCK* ecb) { DispatchStencilCall(ecb); });
}

DWORD CIsapiExtensionBase::FrameworkHttpExtensionProc(EXTENSION_CONTROL_BLOCK* ecb) {
  if (HasCriticalError() || !pool_.QueueRequest(ecb)) {
    AnswerCriticalError(ecb);
    AnsweredWithoutWorker(ecb);
    return HSE_STATUS_SUCCESS;
  }
  return HSE_STATUS_PENDING;
}

void CIsapiExtensionBase::AnswerCriticalError(EXTENSION_CONTROL_BLOCK* ecb) {
  CHttpResponse response(ecb);
  response.SetStatusCode(500);
  response.SetHeader("Content-Type", "text/html");
  response.Write(std::string("<html><body>A critical error has occurred initializing the ISAPI extension</body></html>"));
  response.Flush();
}

BOOL CIsapiExtensionBase::FrameworkTerminateExtension(DWORD) {
  pool_.Shutdown();
  return TRUE;
}

void CIsapiExtensionBase::DoneWithSession(EXTENSION_CONTROL_BLOCK* ecb) {
  DWORD status = HSE_STATUS_SUCCESS;
  ecb->ServerSupportFunction(ecb->ConnID, HSE_REQ_DONE_WITH_SESSION, &status, nullptr, nullptr);
}
