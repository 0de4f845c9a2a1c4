#include <windows.h>

#include <cstring>

#include "platform/errors.h"
#include "platform/shared_memory.h"
#include "wide.h"

namespace plat {
namespace {
using win32::W;

DWORD MapRights(MapAccess access) {
  switch (access) {
    case MapAccess::kRead: return FILE_MAP_READ;
    case MapAccess::kReadWrite: return FILE_MAP_READ | FILE_MAP_WRITE;
    case MapAccess::kAll: return FILE_MAP_ALL_ACCESS;
  }
  return FILE_MAP_READ;
}
}  // namespace

SharedMemory::~SharedMemory() { Close(); }

bool SharedMemory::Open(const char16_t* name, MapAccess access) {
  Close();
  handle_ = ::OpenFileMappingW(MapRights(access), FALSE, W(name));
  access_ = access;
  return handle_ != nullptr;
}

bool SharedMemory::Create(const char16_t* name, uint32_t size) {
  Close();
  handle_ = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, W(name));
  access_ = MapAccess::kAll;
  return handle_ != nullptr;
}

void* SharedMemory::Map(uint32_t size, MapAccess access) {
  Unmap();
  view_ = ::MapViewOfFile(handle_, MapRights(access), 0, 0, size);
  viewSize_ = view_ ? size : 0;
  return view_;
}

bool SharedMemory::Read(void* out, uint32_t size) {
  const void* view = Map(size, access_);
  if (view == nullptr) return false;
  std::memcpy(out, view, size);
  Unmap();
  return true;
}

void SharedMemory::Unmap() {
  if (view_) ::UnmapViewOfFile(view_);
  view_ = nullptr;
  viewSize_ = 0;
}

void SharedMemory::Close() {
  Unmap();
  if (handle_) ::CloseHandle(handle_);
  handle_ = nullptr;
}

bool SharedMemory::Remove(const char16_t*) { return true; }

}  // namespace plat
