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

mon::PoolView CIsapiExtensionBase::PoolState() {
  mon::PoolView view;
  view.workers = pool_.WorkerCount();
  view.busy = pool_.BusyCount();
  view.queued = pool_.QueuedCount();
  view.queueLimit = pool_.QueueLimit();
  view.refusedForLoad = RefusedForLoad();
  return view;
}

void CIsapiExtensionBase::UninitializeFramework() { pool_.Shutdown(); }

bool CIsapiExtensionBase::InitializeThreadPool(unsigned workers, std::size_t maxQueued) {
  return pool_.Initialize(workers, [this](EXTENSION_CONTROL_BLOCK* ecb) { DispatchStencilCall(ecb); }, maxQueued);
}

DWORD CIsapiExtensionBase::FrameworkHttpExtensionProc(EXTENSION_CONTROL_BLOCK* ecb) {
  const CThreadPool::Queued queued = HasCriticalError() ? CThreadPool::Queued::kStopped : pool_.QueueRequest(ecb);
  if (queued == CThreadPool::Queued::kYes) return HSE_STATUS_PENDING;
  if (queued == CThreadPool::Queued::kFull) {
    refusedForLoad_.fetch_add(1, std::memory_order_relaxed);
    AnswerBusy(ecb);
  } else {
    AnswerCriticalError(ecb);
  }
  AnsweredWithoutWorker(ecb);
  return HSE_STATUS_SUCCESS;
}

void CIsapiExtensionBase::AnswerBusy(EXTENSION_CONTROL_BLOCK* ecb) {
  static std::atomic<uint32_t> spread{0};
  // A cheap spread: successive refusals get successive seconds of 5 to 15.
  const uint32_t seconds = 5 + (spread.fetch_add(7, std::memory_order_relaxed) % 11);
  CHttpResponse response(ecb);
  response.CompleteBusy(seconds);
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
