#include "ut_InitCOM.h"

#include "dbg_Trace.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\ut_InitCOM";
constexpr int kThreadModelChangeAttempts = 10;

constexpr char16_t kInitialize[] = u"UTIL::CComInitiator::Initialize";
constexpr char16_t kChangeThreadModel[] = u"UTIL::CComInitiator::ChangeThreadModel";
constexpr char16_t kForceAdjust[] = u"UTIL::CComInitiator::ForceAdjustThreadModel";
constexpr char16_t kDeInitialize[] = u"UTIL::CComInitiator::DeInitialize";
constexpr char16_t kDestructor[] = u"UTIL::CComInitiator::~CComInitiator";

}  // namespace

namespace UTIL {

CComInitiator::CComInitiator(uint32_t threadModel, bool force) { m_hrResult = Initialize(threadModel, force); }

CComInitiator::~CComInitiator() {
  DeInitialize();
  if (m_bInitialize == 1) {
    VGCR_TRACE(68, u"%s - Failed to uninitiate CComInitiator. m_bInitialize: [%d].", kDestructor, m_bInitialize);
  }
}

plat::HResult CComInitiator::GetResult() const { return m_hrResult; }

plat::HResult CComInitiator::ForceAdjustThreadModel(uint32_t threadModel) {
  DeInitialize();
  m_hrResult = Initialize(threadModel, true);
  VGCR_TRACE(68, u"%s - Initiate with thread model: [%d] result: [%d].", kForceAdjust, threadModel, m_hrResult);
  return m_hrResult;
}

void CComInitiator::Terminate() { DeInitialize(); }

plat::HResult CComInitiator::Initialize(uint32_t threadModel, bool force) {
  plat::HResult hr = plat::CoInitializeEx(threadModel);
  if (hr == plat::kRpcEChangedMode) {
    VGCR_TRACE(69, u"%s - CoInitializeEx failed due to the thread model change (RPC_E_CHANGED_MODE) with COM error code: [%d].",
               kInitialize, hr);
    if (!force) {
      VGCR_TRACE(69, u"%s - Keep the original thread model.", kInitialize);
      VGCR_TRACE(69, u"%s - CoInitializeEx failed with COM error code: [%d].", kInitialize, hr);
      m_bInitialize = 0;
      return hr;
    }
    VGCR_TRACE(69, u"%s - Force to change thread model to: [%d].", kInitialize, threadModel);
    hr = ChangeThreadModel(threadModel);
  }
  if (hr == plat::kSOk || hr == plat::kSFalse) {
    m_bInitialize = 1;
    return hr;
  }
  VGCR_TRACE(69, u"%s - CoInitializeEx failed with COM error code: [%d].", kInitialize, hr);
  m_bInitialize = 0;
  return hr;
}

void CComInitiator::DeInitialize() {
  if (m_bInitialize) {
    plat::CoUninitialize();
    m_bInitialize = 0;
    return;
  }
  VGCR_TRACE(68, u"%s - Due to CoInitializeEx failed, skip to call CoUninitialize.", kDeInitialize);
}

plat::HResult CComInitiator::ChangeThreadModel(uint32_t threadModel) {
  for (uint32_t attempt = 1; attempt <= kThreadModelChangeAttempts; ++attempt) {
    plat::CoUninitialize();
    plat::HResult hr = plat::CoInitializeEx(threadModel);
    if (hr != plat::kRpcEChangedMode) {
      VGCR_TRACE(68, u"%s - Thread model change successfully.", kChangeThreadModel);
      return hr;
    }
    VGCR_TRACE(69, u"%s - Thread model change failed, try again, retry times: [%u].", kChangeThreadModel, attempt);
  }
  return plat::kRpcEChangedMode;
}

}  // namespace UTIL
