#include "util_ipc_msg_buffer.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <new>

#include "platform/diagnostics.h"
#include "platform/machine_config.h"
#include "platform/temp_file.h"
#include "platform/text.h"
#include "support/dbg_Trace.h"
#include "support/str_Format.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\util_ipc_msg_buffer";
constexpr char16_t kSourceFile[] = u"util_ipc_msg_buffer";

std::filesystem::path FsPath(const std::u16string& path) { return std::filesystem::path(path); }

// Where spill files go: the server folder, else the per-user cache folder,
// else the temporary folder.
bool SpillFolder(std::u16string* folder) {
  if (plat::ReadServerLocalPath(folder) && !folder->empty()) return true;
  if (plat::UserCacheFolder(folder) && !folder->empty()) return true;
  if (plat::TempFolder(folder) && !folder->empty()) return true;
  folder->clear();
  return false;
}

// Folders compare without trailing separators, and without case on Windows.
std::u16string FolderKey(std::u16string folder) {
  while (!folder.empty() && (folder.back() == u'\\' || folder.back() == u'/')) folder.pop_back();
#if defined(_WIN32)
  for (char16_t& c : folder) {
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
    if (c == u'/') c = u'\\';
  }
#endif
  return folder;
}

}  // namespace

bool CIPCMsgBuffer::IsSpillFilePath(const std::u16string& path) {
  const std::size_t cut = path.find_last_of(u"\\/");
  if (cut == std::u16string::npos) return false;
  // The name as the writer makes it: "mst", a unique part of letters and
  // digits (hexadecimal on Windows), ".tmp".
  const std::u16string_view name = std::u16string_view(path).substr(cut + 1);
  if (name.size() < 8 || !plat::EqualsIgnoringAsciiCase(name.substr(0, 3), u"mst") ||
      !plat::EqualsIgnoringAsciiCase(name.substr(name.size() - 4), u".tmp")) {
    return false;
  }
  for (const char16_t c : name.substr(3, name.size() - 7)) {
    if (!((c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'))) return false;
  }
  // Only the folder this side would write its own spill files to: a sender
  // naming a file elsewhere (the temporary folder, say, where anybody can
  // make files) would otherwise have us read, and delete, it.
  std::u16string folder;
  return SpillFolder(&folder) && FolderKey(folder) == FolderKey(path.substr(0, cut));
}

// ---------------------------------------------------------------- exception

CIPCMsgBufferException::CIPCMsgBufferException(uint32_t code, const char16_t* sourceFile, uint32_t line)
    : OS::CException(code, kCategory, sourceFile, line, MessageFor(code)) {}

const char16_t* CIPCMsgBufferException::MessageFor(uint32_t code) {
  switch (code) {
    case kOutOfRange: return u"Out of range";
    case kInvalidBuffer: return u"Invalid buffer";
    case kNotOwner: return u"Not owner";
    default: return u"";
  }
}

// ---------------------------------------------------------------- buffer

CIPCMsgBuffer::CIPCMsgBuffer(uint32_t growthStep, bool owner)
    : growthStep_(growthStep ? growthStep : 1024), owner_(owner) {}

CIPCMsgBuffer::~CIPCMsgBuffer() {
  if (owner_) delete[] data_;
  data_ = nullptr;
  if (spillStream_) {
    spillStream_->close();
    spillStream_.reset();
    plat::GrantServiceAccess(spillPath_);
  }
  spillInput_.Close();  // Windows deletes no file that is still open
  if (spillPath_[0] && deleteSpillFile_) plat::DeleteFileAt(spillPath_);
}

void CIPCMsgBuffer::Raise(uint32_t code, int line) const {
  throw CIPCMsgBufferException(code, kSourceFile, static_cast<uint32_t>(line));
}

bool CIPCMsgBuffer::SpillNow() {
  if (spillStream_) return true;
  if (!CreateSpillFile()) return false;
  spillStream_->write(reinterpret_cast<const char*>(data_), m_dwBytesUsed);
  if (!*spillStream_) Raise(CIPCMsgBufferException::kInvalidBuffer, __LINE__);
  return true;
}

void CIPCMsgBuffer::Append(const void* source, uint32_t size) {
  if (capacity_ >= kSpillThreshold && !spillStream_) SpillNow();
  if (spillStream_) {
    spillStream_->write(static_cast<const char*>(source), size);
    if (!*spillStream_) Raise(CIPCMsgBufferException::kInvalidBuffer, __LINE__);
    return;
  }
  if (size == 0) return;
  if (capacity_ - m_dwBytesUsed >= size) {
    std::memcpy(data_ + m_dwBytesUsed, source, size);
    m_dwBytesUsed += size;
    return;
  }
  // The next multiple of the step strictly above the size needed.
  uint64_t needed = uint64_t{m_dwBytesUsed} + size;
  uint64_t grown = (needed / growthStep_ + 1) * growthStep_;
  if (grown > UINT32_MAX) Raise(CIPCMsgBufferException::kOutOfRange, __LINE__);
  auto* block = new (std::nothrow) uint8_t[grown];
  if (!block) Raise(CIPCMsgBufferException::kInvalidBuffer, __LINE__);
  if (m_dwBytesUsed) std::memcpy(block, data_, m_dwBytesUsed);
  std::memcpy(block + m_dwBytesUsed, source, size);
  if (owner_) delete[] data_;
  data_ = block;
  owner_ = true;
  m_dwBytesUsed += size;
  capacity_ = static_cast<uint32_t>(grown);
}

bool CIPCMsgBuffer::CreateSpillFile() {
  std::u16string folder;
  if (!SpillFolder(&folder)) {
    spillPath_[0] = u'\0';
    return false;
  }
  if (folder.back() != u'\\' && folder.back() != u'/') folder.push_back(plat::kPathSeparator);
  std::u16string full;
  if (!plat::CreateTempFile(folder, u"mstmp", &full) || full.size() >= kPathChars) {
    if (!full.empty()) plat::DeleteFileAt(full);
    spillPath_[0] = u'\0';
    return false;
  }
  std::memcpy(spillPath_, full.c_str(), (full.size() + 1) * sizeof(char16_t));
  char16_t line[kPathChars + 16];
  fmt16::Format(line, kPathChars + 16, u"Path:%s\n", spillPath_);
  plat::OutputDebugText(line);
  // Until the message is handed over, nobody else will ever read the file.
  deleteSpillFile_ = true;
  spillStream_ = std::make_unique<std::fstream>(
      FsPath(full), std::ios::in | std::ios::out | std::ios::binary | std::ios::trunc);
  return true;
}

bool CIPCMsgBuffer::OpenSpillForInput(const std::u16string& path) {
  if (path.empty() || path.size() >= kPathChars || !IsSpillFilePath(path)) return false;
  std::memcpy(spillPath_, path.c_str(), (path.size() + 1) * sizeof(char16_t));
  // From here the file is ours to remove, however the open or the reading
  // ends: a file left because it could not be read would stay for good.
  deleteSpillFile_ = true;
  return spillInput_.Open(path);
}

void CIPCMsgBuffer::CloseSpillStream() {
  if (!spillStream_) return;
  spillStream_->close();
  bool good = !spillStream_->fail();
  spillStream_.reset();
  plat::GrantServiceAccess(spillPath_);
  if (!good) Raise(CIPCMsgBufferException::kInvalidBuffer, __LINE__);
}

void CIPCMsgBuffer::Attach(const void* bytes, uint32_t size) {
  if (owner_) delete[] data_;
  data_ = nullptr;
  capacity_ = m_dwBytesUsed = m_dwCurPos = previousPos_ = 0;
  owner_ = true;
  if (size == 0) return;
  data_ = new (std::nothrow) uint8_t[size];
  if (!data_) Raise(CIPCMsgBufferException::kInvalidBuffer, __LINE__);
  std::memcpy(data_, bytes, size);
  capacity_ = m_dwBytesUsed = size;
}

uint8_t* CIPCMsgBuffer::Detach(uint32_t* size) {
  uint8_t* block = data_;
  if (size) *size = m_dwBytesUsed;
  data_ = nullptr;
  capacity_ = m_dwBytesUsed = m_dwCurPos = previousPos_ = 0;
  return block;
}

void CIPCMsgBuffer::Clear() {
  if (owner_) delete[] data_;
  data_ = nullptr;
  owner_ = true;
  capacity_ = m_dwBytesUsed = m_dwCurPos = previousPos_ = 0;
}

bool CIPCMsgBuffer::Refill(uint32_t need, uint32_t required) {
  if (!spillInput_.IsOpen()) return false;
  const uint32_t remaining = m_dwBytesUsed - m_dwCurPos;
  const uint64_t available = uint64_t{remaining} + spillInput_.Remaining();
  // A length that claims more than the file still holds cannot be met:
  // refuse it before allocating for it. (The logging read asks for four
  // bytes more than it requires.)
  if (required > available) return false;
  // The window takes the whole of what is asked for, however much longer
  // than the window so far; it keeps the block already held (at least
  // kRefillWindow), and is filled only with what the file can still deliver.
  const uint64_t window =
      std::min<uint64_t>(std::max<uint64_t>({need, capacity_, kRefillWindow}), available);
  if (data_ == nullptr || window > capacity_) {
    auto* block = new (std::nothrow) uint8_t[window];
    if (!block) return false;
    if (remaining) std::memcpy(block, data_ + m_dwCurPos, remaining);
    if (owner_) delete[] data_;
    data_ = block;
    owner_ = true;
    capacity_ = static_cast<uint32_t>(window);
  } else if (remaining) {
    std::memmove(data_, data_ + m_dwCurPos, remaining);
  }
  const uint32_t delivered = spillInput_.Read(data_ + remaining, static_cast<uint32_t>(window) - remaining);
  m_dwBytesUsed = remaining + delivered;
  m_dwCurPos = previousPos_ = 0;
  // Read to its end, or the file failed: nothing more will come from it.
  if (spillInput_.Remaining() == 0) spillInput_.Close();
  return true;
}

uint64_t CIPCMsgBuffer::SpillBytesLeft() { return spillInput_.IsOpen() ? spillInput_.Remaining() : 0; }

bool CIPCMsgBuffer::NextItemAvailable() {
  const uint32_t n = PeekU32();
  const uint64_t inMemory = m_dwBytesUsed - m_dwCurPos;
  return uint64_t{n} + 4 <= inMemory + SpillBytesLeft();
}

// Raises kOutOfRange unless `need` unread bytes are (or can be made) available.
void CIPCMsgBuffer::EnsureReadable(uint32_t need, int line) {
  if (uint64_t{m_dwCurPos} + need <= m_dwBytesUsed) return;
  if (!Refill(need) || uint64_t{m_dwCurPos} + need > m_dwBytesUsed) {
    Raise(CIPCMsgBufferException::kOutOfRange, line);
  }
}

uint32_t CIPCMsgBuffer::ReadU32() {
  if (!data_) Raise(CIPCMsgBufferException::kInvalidBuffer, __LINE__);
  EnsureReadable(4, __LINE__);
  uint32_t value = 0;
  std::memcpy(&value, data_ + m_dwCurPos, 4);  // the host is little-endian
  previousPos_ = m_dwCurPos;
  m_dwCurPos += 4;
  return value;
}

uint32_t CIPCMsgBuffer::PeekU32() {
  if (!data_) Raise(CIPCMsgBufferException::kInvalidBuffer, __LINE__);
  EnsureReadable(4, __LINE__);
  uint32_t value = 0;
  std::memcpy(&value, data_ + m_dwCurPos, 4);
  return value;
}

const uint8_t* CIPCMsgBuffer::ReadItem(uint32_t* length) { return ReadItemImpl(length, true); }

const uint8_t* CIPCMsgBuffer::ReadItemSilent(uint32_t* length) { return ReadItemImpl(length, false); }

const uint8_t* CIPCMsgBuffer::ReadItemImpl(uint32_t* length, bool logging) {
  if (!data_) Raise(CIPCMsgBufferException::kInvalidBuffer, __LINE__);
  EnsureReadable(4, __LINE__);
  uint32_t n = 0;
  std::memcpy(&n, data_ + m_dwCurPos, 4);
  previousPos_ = m_dwCurPos;
  m_dwCurPos += 4;
  if (uint64_t{m_dwCurPos} + n > m_dwBytesUsed) {
    // The logging read asks the spill file for four bytes more than it needs.
    const bool refilled = logging ? n <= UINT32_MAX - 4 && Refill(n + 4, n) : Refill(n);
    if (!refilled || uint64_t{m_dwCurPos} + n > m_dwBytesUsed) {
      if (logging) {
        dbg::TraceW(2, kTraceSource, __LINE__,
                    u"CIPCMsgBuffer::operator >>() ==> size error  (m_dwCurPos[%d]+iTotalBytes[%d]) > m_dwBytesUsed[%d]",
                    m_dwCurPos, n, m_dwBytesUsed);
      }
      Raise(CIPCMsgBufferException::kOutOfRange, __LINE__);
    }
  }
  previousPos_ = m_dwCurPos;
  const uint8_t* item = data_ + m_dwCurPos;
  m_dwCurPos += n;
  *length = n;
  return item;
}
