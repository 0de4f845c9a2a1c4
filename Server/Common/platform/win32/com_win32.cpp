#include <windows.h>
#include <objbase.h>

#include <cstring>

#include "platform/com.h"
#include "wide.h"

namespace plat {

HResult CoInitializeEx(uint32_t coinit) { return ::CoInitializeEx(nullptr, coinit); }
void CoUninitialize() { ::CoUninitialize(); }

HResult ClsidFromString(const char16_t* text, Guid* out) {
  if (!out) return E_INVALIDARG;
  CLSID clsid{};
  HRESULT hr = ::CLSIDFromString(const_cast<LPOLESTR>(win32::W(text)), &clsid);
  if (SUCCEEDED(hr)) {
    out->data1 = clsid.Data1;
    out->data2 = clsid.Data2;
    out->data3 = clsid.Data3;
    std::memcpy(out->data4, clsid.Data4, sizeof out->data4);
  }
  return hr;
}

}  // namespace plat
