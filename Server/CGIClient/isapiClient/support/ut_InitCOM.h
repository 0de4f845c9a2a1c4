// A scoped COM initialisation for one request on a pool worker. It balances
// its own successful initialisation with exactly one uninitialisation, and
// leaves a thread that COM already runs under another model alone unless
// told to force the change.
#pragma once

#include <cstdint>

#include "platform/com.h"

namespace UTIL {

class CComInitiator {
 public:
  // Initialises COM on the calling thread with the model (COINIT_...).
  explicit CComInitiator(uint32_t threadModel = plat::kCoInitApartmentThreaded, bool force = false);
  CComInitiator(const CComInitiator&) = delete;
  CComInitiator& operator=(const CComInitiator&) = delete;

  virtual ~CComInitiator();
  virtual plat::HResult GetResult() const;
  // Undoes this object's initialisation, then initialises again with the
  // model, forcing the change when the thread runs under another.
  virtual plat::HResult ForceAdjustThreadModel(uint32_t threadModel);
  // Public entry to DeInitialize.
  virtual void Terminate();

  int32_t IsInitialized() const { return m_bInitialize; }

 protected:
  virtual plat::HResult Initialize(uint32_t threadModel, bool force);
  virtual void DeInitialize();
  virtual plat::HResult ChangeThreadModel(uint32_t threadModel);

 private:
  plat::HResult m_hrResult = plat::kEFail;
  int32_t m_bInitialize = 0;
};

}  // namespace UTIL
