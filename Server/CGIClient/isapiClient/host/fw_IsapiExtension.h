// The small framework under the extension: the version record, the
// critical-error state and its page, and the worker pool that runs every
// request. Subclasses implement DispatchStencilCall.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "fw_ThreadPool.h"
#include "mon_Metrics.h"
#include "isapi/isapi.h"

class CIsapiExtensionBase {
 public:
  // The framework's message for a thread pool that could not start.
  static constexpr uint32_t kThreadPoolFailedResourceId = 24612;

  CIsapiExtensionBase() = default;
  virtual ~CIsapiExtensionBase() = default;
  CIsapiExtensionBase(const CIsapiExtensionBase&) = delete;
  CIsapiExtensionBase& operator=(const CIsapiExtensionBase&) = delete;

  // Fills the version record (version and description).
  BOOL FrameworkGetExtensionVersion(HSE_VERSION_INFO* version);
  bool HasCriticalError() const { return criticalError_ != 0; }
  uint32_t CriticalError() const { return criticalError_; }
  BOOL SetCriticalIsapiError(uint32_t resourceId);
  void UninitializeFramework();

  bool InitializeThreadPool(unsigned workers, std::size_t maxQueued);
  // Queues the request for a worker and returns HSE_STATUS_PENDING; in the
  // critical-error state, answers the error page at once instead, and with
  // the queue full answers 503 with a Retry-After of 5 to 15 s (spread, so
  // that refused clients do not all come back at once).
  DWORD FrameworkHttpExtensionProc(EXTENSION_CONTROL_BLOCK* ecb);
  // Requests refused because the queue was full, since start.
  uint64_t RefusedForLoad() const { return refusedForLoad_.load(std::memory_order_relaxed); }
  // The pool as the metrics show it.
  mon::PoolView PoolState();
  // Stops the pool (joining its workers).
  BOOL FrameworkTerminateExtension(DWORD flags);

  // What every request ends with: HSE_REQ_DONE_WITH_SESSION for a request
  // the host handed over asynchronously.
  static void DoneWithSession(EXTENSION_CONTROL_BLOCK* ecb);

 protected:
  virtual void DispatchStencilCall(EXTENSION_CONTROL_BLOCK* ecb) = 0;
  // Runs after a request was answered without a worker (critical error, or
  // a pool that took no more work), so that whoever waits for it is released.
  virtual void AnsweredWithoutWorker(EXTENSION_CONTROL_BLOCK* ecb) { (void)ecb; }
  unsigned WorkerCount() const { return pool_.WorkerCount(); }

 private:
  void AnswerCriticalError(EXTENSION_CONTROL_BLOCK* ecb);
  void AnswerBusy(EXTENSION_CONTROL_BLOCK* ecb);

  CThreadPool pool_;
  std::atomic<uint32_t> criticalError_{0};
  std::atomic<uint64_t> refusedForLoad_{0};
};
