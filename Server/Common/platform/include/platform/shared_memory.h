// Named shared-memory records (OpenFileMappingW / MapViewOfFile).
// POSIX: shm_open("/<name>") with a "Global\" or "Local\" prefix dropped.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/handle.h"

namespace plat {

enum class MapAccess { kRead, kReadWrite, kAll };

class SharedMemory {
 public:
  SharedMemory() = default;
  ~SharedMemory();
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  // Opens an existing record; kErrorFileNotFound when none is published.
  bool Open(const char16_t* name, MapAccess access);
  // Creates (or opens) a record of the given size, for publishers.
  bool Create(const char16_t* name, uint32_t size);
  // Maps the first `size` bytes. A record smaller than that fails with
  // kErrorAccessDenied rather than faulting later.
  void* Map(uint32_t size, MapAccess access);
  void Unmap();
  void Close();

  // Removes a published name (POSIX shm_unlink). On Windows a mapping lives
  // as long as a handle to it is open, so this only reports success.
  static bool Remove(const char16_t* name);

 private:
  NativeHandle handle_ = kNoHandle;
  void* view_ = nullptr;
  std::size_t viewSize_ = 0;
  MapAccess access_ = MapAccess::kRead;
};

}  // namespace plat
