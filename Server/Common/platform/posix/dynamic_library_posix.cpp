#include <dlfcn.h>

#include "platform/dynamic_library.h"
#include "platform/text.h"

namespace plat {

DynamicLibrary::~DynamicLibrary() { Unload(); }

bool DynamicLibrary::Load(const std::u16string& path) {
  Unload();
  handle_ = ::dlopen(ToUtf8(path).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle_) {
    const char* why = ::dlerror();
    error_ = why ? why : "dlopen failed";
    return false;
  }
  error_.clear();
  return true;
}

void* DynamicLibrary::Symbol(const char* name) const {
  return handle_ ? ::dlsym(handle_, name) : nullptr;
}

void DynamicLibrary::Unload() {
  if (handle_) ::dlclose(handle_);
  handle_ = nullptr;
}

}  // namespace plat
