#include <windows.h>

#include "platform/codepage.h"
#include "wide.h"

namespace plat {

int MultiByteToWide(uint32_t codePage, uint32_t flags, const char* src, int srcLength,
                    char16_t* dst, int dstCapacity) {
  return ::MultiByteToWideChar(codePage, flags, src, srcLength, win32::W(dst), dstCapacity);
}

int WideToMultiByte(uint32_t codePage, uint32_t flags, const char16_t* src, int srcLength,
                    char* dst, int dstCapacity) {
  return ::WideCharToMultiByte(codePage, flags, win32::W(src), srcLength, dst, dstCapacity, nullptr,
                               nullptr);
}

uint32_t AnsiCodePage() { return ::GetACP(); }

}  // namespace plat
