// Loading a library and looking up its entry points by name.
#pragma once

#include <string>

namespace plat {

class DynamicLibrary {
 public:
  DynamicLibrary() = default;
  ~DynamicLibrary();
  DynamicLibrary(const DynamicLibrary&) = delete;
  DynamicLibrary& operator=(const DynamicLibrary&) = delete;

  // LoadLibraryW / dlopen. On failure Error() says why.
  bool Load(const std::u16string& path);
  void* Symbol(const char* name) const;
  void Unload();
  bool IsLoaded() const { return handle_ != nullptr; }
  const std::string& Error() const { return error_; }

 private:
  void* handle_ = nullptr;
  std::string error_;
};

}  // namespace plat
