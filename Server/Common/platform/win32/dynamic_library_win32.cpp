#include <windows.h>

#include <string>

#include "platform/dynamic_library.h"
#include "wide.h"

namespace plat {

DynamicLibrary::~DynamicLibrary() { Unload(); }

bool DynamicLibrary::Load(const std::u16string& path) {
  Unload();
  handle_ = ::LoadLibraryW(win32::W(path.c_str()));
  if (!handle_) {
    error_ = "LoadLibrary failed, error " + std::to_string(::GetLastError());
    return false;
  }
  error_.clear();
  return true;
}

void* DynamicLibrary::Symbol(const char* name) const {
  if (!handle_) return nullptr;
  return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(handle_), name));
}

void DynamicLibrary::Unload() {
  if (handle_) ::FreeLibrary(static_cast<HMODULE>(handle_));
  handle_ = nullptr;
}

}  // namespace plat
