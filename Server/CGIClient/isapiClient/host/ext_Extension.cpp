#include "ext_Extension.h"

#include <cstdio>
#include <cstring>

#include "platform/errors.h"
#include "platform/event.h"
#include "platform/process.h"
#include "platform/text.h"
#include "support/dbg_Trace.h"
#include "support/str_Format.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\isapi_Client";

}  // namespace

std::atomic<int> adapterMode{0};

CisapiClientExtension& TheExtension() {
  static CisapiClientExtension* extension = new CisapiClientExtension();
  return *extension;
}

BOOL CisapiClientExtension::GetExtensionVersion(HSE_VERSION_INFO* version) {
  dbg::Initialize("", "", "isapiClient", 1);
  VGCR_TRACE(8, u"[isapiClient] GetExtensionVersion();");
  guards_.memRequestCounter = 0;
  guards_.memCheckCount = 200;
  guards_.memMonitorInterval = 2000;
  guards_.memOverThreshold = 0;
  guards_.memLastCheckTick = 0;
  guards_.diskThresholdStatus = 1700;
  guards_.diskMonitorInterval = 5000;
  guards_.diskCheckCount = 200;
  guards_.diskRequestCounter = 0;
  guards_.diskLastCheckTick = 0;
  adapterModeSeen_ = 0;
  if (!FrameworkGetExtensionVersion(version)) return FALSE;
  if (HasCriticalError()) return TRUE;
  const unsigned workers = CThreadPool::DefaultWorkerCount();
  if (InitializeThreadPool(workers, CThreadPool::DefaultQueueLimit(workers))) {
    metricsFile_.Start(plat::EnvironmentValue("VGCR_METRICS_FILE"), [this] { return Metrics(); });
    return TRUE;
  }
  UninitializeFramework();
  return SetCriticalIsapiError(kThreadPoolFailedResourceId);
}

DWORD CisapiClientExtension::HttpExtensionProc(EXTENSION_CONTROL_BLOCK* ecb) {
  const uint32_t start = plat::TickCount();
  const bool adapter = ecb != nullptr && (ecb->lpszPathInfo == nullptr || ecb->lpszPathTranslated == nullptr);
  adapterMode.store(adapter ? 1 : 0, std::memory_order_relaxed);
  if (!adapter) {
    DWORD status = FrameworkHttpExtensionProc(ecb);
    VGCR_TRACE(8, u"[isapiClient] IIS HttpExtensionProc(); [%d] minisec", plat::TickCount() - start);
    return status;
  }
  // The name lives on this thread's stack, which is safe because this call
  // waits until the request is complete.
  char eventName[256] = {};
  std::snprintf(eventName, sizeof eventName, "%s%d", kAdapterEventPrefix, static_cast<int>(plat::CurrentThreadId()));
  ecb->lpszPathInfo = const_cast<char*>(kAdapterPath);
  ecb->lpszPathTranslated = eventName;
  plat::Event done;
  if (!done.Create(plat::Widen(eventName).c_str(), false)) {
    VGCR_TRACE(2, u"[isapiClient] create terminate event failed = %d", plat::LastError());
    return HSE_STATUS_ERROR;
  }
  // A worker of this thread's previous request may still hold the name for
  // a moment after setting it; the event must start unsignalled all the same.
  if (plat::LastError() == plat::kErrorAlreadyExists) done.Reset();
  adapterModeSeen_ = 1;
  FrameworkHttpExtensionProc(ecb);
  done.Wait(plat::kInfinite);
  done.Close();
  VGCR_TRACE(8, u"[isapiClient] Apache HttpExtensionProc(); [%d] minisec", plat::TickCount() - start);
  return HSE_STATUS_SUCCESS;
}

BOOL CisapiClientExtension::TerminateExtension(DWORD flags) {
  VGCR_TRACE(8, u"[TerminateExtension] TerminateExtension();");
  // The command channel keeps no process-wide objects: each send opens its
  // own connection, so there is nothing of it to release here.
  const BOOL stopped = FrameworkTerminateExtension(flags);
  metricsFile_.Stop();  // after the workers, so that the file has their last counts
  return stopped;
}

void CisapiClientExtension::AnsweredWithoutWorker(EXTENSION_CONTROL_BLOCK* ecb) { SignalAdapterEvent(ecb); }

void SignalAdapterEvent(EXTENSION_CONTROL_BLOCK* ecb) {
  if (!adapterMode.load(std::memory_order_relaxed) || ecb == nullptr || ecb->lpszPathTranslated == nullptr) return;
  const std::size_t prefix = std::strlen(kAdapterEventPrefix);
  if (std::strncmp(ecb->lpszPathTranslated, kAdapterEventPrefix, prefix) != 0) return;
  plat::Event event;
  if (event.Open(plat::Widen(ecb->lpszPathTranslated).c_str())) event.Set();
}
