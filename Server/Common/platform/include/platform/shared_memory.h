// Named shared-memory records (OpenFileMappingW / MapViewOfFile).
// POSIX: shm_open("/<name>") with a "Global\" or "Local\" prefix dropped.
//
// A record is written by a monitor and trusted by its readers, so on POSIX a
// reader opens it read-only whatever access it names (the Windows access
// rights are the mapping's own) and refuses one that anybody but root, the
// reader's own user or $VGCR_GUARD_OWNER (a uid) owns, or that its group or
// others may write: any local user could otherwise publish, or shrink, a
// record the server obeys.
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

  // Opens an existing record; kErrorFileNotFound when none is published,
  // kErrorAccessDenied (POSIX) for one not to be trusted.
  bool Open(const char16_t* name, MapAccess access);
  // Creates (or opens) a record of the given size, for publishers. POSIX:
  // mode 0644, and a record that another user owns is refused
  // (kErrorAccessDenied).
  bool Create(const char16_t* name, uint32_t size);
  // Copies the first `size` bytes of an opened record: a view mapped and
  // released on Windows, pread on POSIX (a record shrunk meanwhile fails
  // with kErrorAccessDenied instead of faulting).
  bool Read(void* out, uint32_t size);
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
