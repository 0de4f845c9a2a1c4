// The byte container under every command message: an append-only buffer
// with a read cursor. Small messages live in memory; once the buffer has
// grown to 2 MiB it moves into an "mstmp" temporary file (a spill file) and
// keeps appending there, and reads refill the in-memory part from the file.
// Every fault raises CIPCMsgBufferException.
//
// A received file-backed message names its spill file. The name is trusted
// only as far as the checks below go: an "mst*.tmp" name in the one folder
// this side's own spill files go to (IsSpillFilePath), then a plain file,
// never a link, and on POSIX one of this user, root or the pipe group
// (plat::TempFileReader).
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include "platform/temp_file.h"
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
  // The least a refill of the in-memory window reads from a spill file (or
  // all the file still holds, when that is less), so that a file of small
  // items is not read a few hundred bytes at a time.
  static constexpr uint32_t kRefillWindow = 64 * 1024;

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
  // A path that IsSpillFilePath refuses is neither opened nor ever deleted.
  // One it accepts is this buffer's to delete from then on, whether or not
  // the file can be opened (or is refused once open): the receiver is a
  // spill file's last reader, and nobody else would remove it.
  bool OpenSpillForInput(const std::u16string& path);
  // Whether the path is "mst" + letters and digits + ".tmp" in the folder
  // where this side's own spill files go (the server folder when one is
  // configured, else the cache folder, else the temporary folder: the first
  // of them there is, and only that one). Sender and receiver must have the
  // same folder configured.
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
  // and gives up at once (allocating nothing) when not even `required` of
  // them can come. The window grows to what is asked, bounded by what the
  // file holds.
  bool Refill(uint32_t need, uint32_t required);
  bool Refill(uint32_t need) { return Refill(need, need); }
  // Bytes the spill file can still deliver (0 without one open for input).
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
  std::unique_ptr<std::fstream> spillStream_;  // output: this side wrote the file
  plat::TempFileReader spillInput_;             // input: the file of a received message
  bool deleteSpillFile_ = false;
  uint32_t m_dwCurPos = 0;
  uint32_t previousPos_ = 0;
};
