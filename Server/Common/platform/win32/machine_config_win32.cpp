#include <windows.h>
#include <shlobj.h>

#include "platform/errors.h"
#include "platform/machine_config.h"
#include "wide.h"

namespace plat {

using win32::U;

bool ReadServerLocalPath(std::u16string* path) {
  wchar_t value[521] = {};
  DWORD bytes = 1042;
  LSTATUS status = ::RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\VantaLabs\\Vigilcrest\\service\\Information",
                                  L"Local_Path", RRF_RT_REG_SZ, nullptr, value, &bytes);
  if (status != ERROR_SUCCESS) {
    ::SetLastError(static_cast<DWORD>(status));
    return false;
  }
  value[520] = L'\0';
  *path = U(value);
  return !path->empty();
}

bool ReadServerUploadLimit(uint32_t* bytes) {
  DWORD value = 0;
  DWORD size = sizeof(value);
  LSTATUS status = ::RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\VantaLabs\\Vigilcrest\\service\\Information",
                                  L"UploadLimit", RRF_RT_REG_DWORD, nullptr, &value, &size);
  if (status != ERROR_SUCCESS || value < 1 || value > 2147483647u) return false;
  *bytes = value;
  return true;
}

bool UserCacheFolder(std::u16string* path) {
  wchar_t folder[MAX_PATH] = {};
  HRESULT hr = ::SHGetFolderPathW(nullptr, CSIDL_INTERNET_CACHE | CSIDL_FLAG_CREATE, nullptr, 0, folder);
  if (FAILED(hr)) {
    ::SetLastError(static_cast<DWORD>(hr));
    return false;
  }
  *path = U(folder);
  return true;
}

bool TempFolder(std::u16string* path) {
  wchar_t folder[521] = {};
  DWORD n = ::GetTempPathW(520, folder);
  if (n == 0 || n > 520) return false;
  *path = U(folder);
  return true;
}

}  // namespace plat
