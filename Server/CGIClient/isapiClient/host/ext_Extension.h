// The process-wide extension object: guard settings, the adapter-mode flag,
// and the request entry over the framework's worker pool.
#pragma once

#include <atomic>
#include <cstdint>

#include "fw_IsapiExtension.h"
#include "grd_Guards.h"
#include "isapi/isapi.h"
#include "mon_MetricsFile.h"

inline constexpr char kAdapterPath[] = "/vigilcrest/cgi/isapiClient.dll";
inline constexpr char kAdapterEventPrefix[] = "VGCR_ISAPI_RETURN_";

// Overwritten by every HttpExtensionProc (1 in adapter mode, else 0) and read
// by the workers at the end of a request: one value for the process, not
// per request. A server that mixed both modes in one process would see the
// wrong mode on some requests; that is accepted.
extern std::atomic<int> adapterMode;

class CisapiClientExtension : public CIsapiExtensionBase {
 public:
  BOOL GetExtensionVersion(HSE_VERSION_INFO* version);
  DWORD HttpExtensionProc(EXTENSION_CONTROL_BLOCK* ecb);
  BOOL TerminateExtension(DWORD flags);

  GuardCaches& Guards() { return guards_; }
  // The counters as Prometheus text (mon_Metrics.h).
  std::string Metrics() { return mon::Render(PoolState(), guards_); }
  bool AdapterModeSeen() const { return adapterModeSeen_.load() != 0; }
  // Tests move the clock of the guards.
  void SetTickSource(TickSource source) { tick_ = source; }
  // Tests: a step run right after a request's token is set on its worker,
  // and the adapter-mode flag set or cleared as an adapter request would.
  void SetTokenSetHook(void (*hook)()) { tokenSetHook_ = hook; }
  void SetAdapterModeSeen(bool seen) { adapterModeSeen_ = seen ? 1 : 0; }

  void DispatchStencilCall(EXTENSION_CONTROL_BLOCK* ecb) override;

 protected:
  void AnsweredWithoutWorker(EXTENSION_CONTROL_BLOCK* ecb) override;

 private:
  // *routedId is the requestid read, when one was.
  int32_t Route(class CHttpRequest& request, class CHttpResponse& response, int32_t* routedId);

  GuardCaches guards_;
  mon::MetricsFile metricsFile_;
  std::atomic<uint8_t> adapterModeSeen_{0};
  TickSource tick_ = nullptr;
  void (*tokenSetHook_)() = nullptr;
};

CisapiClientExtension& TheExtension();

// The worker's side of the adapter hand-shake: in adapter mode, sets the
// event named by the control block's path-translated when that begins with
// "VGCR_ISAPI_RETURN_".
void SignalAdapterEvent(EXTENSION_CONTROL_BLOCK* ecb);
