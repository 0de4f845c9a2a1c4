// The byte container under every command message: an append-only buffer
// with a read cursor. Small messages live in memory; once the buffer has
// grown to 2 MiB it moves into an "mstmp" temporary file (a spill file) and
// keeps appending there, and reads refill the in-memory part from the file.
// Every fault raises CIPCMsgBufferException.
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include "support/os_Exception.h"

class CIPCMsgBufferException : public OS::CException {
 public:
  enum : uint32_t { kOutOfRange = 0, kInvalidBuffer = 1, kNotOwner = 2 };
  static constexpr int32_t kCategory = 4;

  CIPCMsgBufferException(uint32_t code, const char16_t* sourceFile, uint32_t line);
  static const char16_t* MessageFor(uint32_t code);
};

class CIPCMsgBuffer {
 public:
  static constexpr uint32_t kSpillThreshold = 2 * 1024 * 1024;
  static constexpr std::size_t kPathChars = 521;

  explicit CIPCMsgBuffer(uint32_t growthStep = 1024, bool owner = true);
  virtual ~CIPCMsgBuffer();
  CIPCMsgBuffer(const CIPCMsgBuffer&) = delete;
  CIPCMsgBuffer& operator=(const CIPCMsgBuffer&) = delete;

  // Appends exactly these bytes: to memory, or to the spill file once there
  // is one. A spill file that cannot take them (a full disk) raises
  // kInvalidBuffer rather than losing them.
  void Append(const void* source, uint32_t size);

  // Reads a little-endian u32 at the cursor and advances by 4.
  uint32_t ReadU32();
  // Reads a length-prefixed item: returns its first byte (valid until the
  // next read or append) and its length. The logging form traces a length
  // that claims more than remains before raising; the silent form only raises.
  const uint8_t* ReadItem(uint32_t* length);
  const uint8_t* ReadItemSilent(uint32_t* length);
  // The u32 at the cursor, without advancing (refilling if need be).
  uint32_t PeekU32();
  // Whether the item at the cursor can be read whole, from memory or the
  // spill file: lets a reader refuse a hostile length before allocating.
  bool NextItemAvailable();

  // Creates the spill file and opens it for output; true when it is open.
  bool CreateSpillFile();
  // Creates the spill file and moves the bytes held so far into it; later
  // appends go to the file. False (and still in memory) when it cannot.
  bool SpillNow();
  // Opens an existing spill file for input; later reads refill from it.
  // Only a spill file is opened: a path that is not an "mst*.tmp" file in
  // the server folder, the cache folder or the temporary folder is refused,
  // since the receiver deletes what it has read.
  bool OpenSpillForInput(const std::u16string& path);
  static bool IsSpillFilePath(const std::u16string& path);
  // Closes the output stream, keeping the file, and gives the file the
  // access the command-handler service needs. Raises kInvalidBuffer when
  // the file did not take every byte.
  void CloseSpillStream();

  // Replaces the contents with a copy of these bytes, cursor at 0.
  void Attach(const void* bytes, uint32_t size);
  // Hands the data block to the caller (who frees it with delete[]); the
  // buffer then holds nothing and frees nothing.
  uint8_t* Detach(uint32_t* size);
  // Frees the data block and zeroes the counters; a spill file is kept.
  void Clear();

  uint32_t Capacity() const { return capacity_; }
  uint32_t BytesUsed() const { return m_dwBytesUsed; }
  uint32_t CurPos() const { return m_dwCurPos; }
  uint32_t PreviousPos() const { return previousPos_; }
  uint8_t* Data() { return data_; }
  bool HasSpillStream() const { return spillStream_ != nullptr; }
  std::u16string SpillPath() const { return spillPath_; }
  // When set, the destructor deletes the spill file.
  void SetDeleteSpillFile(bool value) { deleteSpillFile_ = value; }
  bool DeleteSpillFile() const { return deleteSpillFile_; }

 private:
  // Makes unread bytes available from the spill file: asks for `need`,
  // and gives up at once when not even `required` of them can come.
  bool Refill(uint32_t need, uint32_t required);
  bool Refill(uint32_t need) { return Refill(need, need); }
  // Bytes the spill stream can still deliver (0 without one).
  uint64_t SpillBytesLeft();
  void EnsureReadable(uint32_t need, int line);
  const uint8_t* ReadItemImpl(uint32_t* length, bool logging);
  [[noreturn]] void Raise(uint32_t code, int line) const;

  uint32_t capacity_ = 0;
  uint32_t m_dwBytesUsed = 0;
  uint32_t growthStep_;
  uint8_t* data_ = nullptr;
  bool owner_;
  char16_t spillPath_[kPathChars] = {};
  std::unique_ptr<std::fstream> spillStream_;
  bool deleteSpillFile_ = false;
  uint32_t m_dwCurPos = 0;
  uint32_t previousPos_ = 0;
};
