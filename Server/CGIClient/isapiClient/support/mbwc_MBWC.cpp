#include "mbwc_MBWC.h"

#include <memory>
#include <new>

#include "dbg_Trace.h"
#include "platform/codepage.h"

namespace {
constexpr char16_t kTraceSource[] = u".\\mbwc_MBWC";
}

namespace MBWC {

int MBToWC(const char* src, char16_t* dst, int dstLength, uint32_t codePage, uint32_t flags) {
  if (src == nullptr || dst == nullptr || dstLength <= 0) return 0;
  int needed = plat::MultiByteToWide(codePage, flags, src, -1, nullptr, 0);
  if (needed > dstLength) {
    VGCR_TRACE_A(70,
                 "[MBWC::MBToWC] MBWC error. Not enough buffer or wrong function was called. "
                 "pszMultiByteStr=%s, nWideCharLength=%d, CodePage=%d, dwFlags=%d",
                 src, dstLength, codePage, flags);
    return 0;
  }
  if (needed == 0) return 0;
  return plat::MultiByteToWide(codePage, flags, src, -1, dst, needed);
}

int WCToMB(const char16_t* src, char* dst, int dstLength, uint32_t codePage, uint32_t flags) {
  if (src == nullptr || dst == nullptr || dstLength <= 0) return 0;
  int needed = plat::WideToMultiByte(codePage, flags, src, -1, nullptr, 0);
  if (needed > dstLength) {
    VGCR_TRACE(70,
               u"[MBWC::WCToMB] MBWC error. Not enough buffer or wrong function was called. "
               u"pszWideCharStr=%s, nMultiByteLength=%d, CodePage=%d, dwFlags=%d",
               src, dstLength, codePage, flags);
    return 0;
  }
  if (needed == 0) return 0;
  return plat::WideToMultiByte(codePage, flags, src, -1, dst, needed);
}

bool WCToMBString(const char16_t* src, std::string* out, uint32_t codePage, uint32_t flags) {
  if (src == nullptr || out == nullptr) return false;
  int needed = plat::WideToMultiByte(codePage, flags, src, -1, nullptr, 0);
  if (needed <= 0) return false;
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[static_cast<std::size_t>(needed) + 1]);
  if (!buffer) return false;
  int written = plat::WideToMultiByte(codePage, flags, src, -1, buffer.get(), needed);
  if (written <= 0) return false;
  buffer[static_cast<std::size_t>(written)] = '\0';
  out->assign(buffer.get());
  return true;
}

}  // namespace MBWC
