// Temporary files and the access the command-handler service needs to them.
#pragma once

#include <cstdint>
#include <string>

#include "platform/handle.h"

namespace plat {

// GetTempFileNameW(folder, prefix, 0): creates a new empty file in folder
// whose name is the first three characters of prefix, a unique part and
// ".tmp", and stores its full name. The folder must end with a separator.
bool CreateTempFile(const std::u16string& folder, const char16_t* prefix,
                    std::u16string* fullName);

// Lets the service's account open a spill file. Windows: a DACL of four
// entries granting GENERIC_ALL to IIS_IUSRS, IUSR, Local System and
// Everyone. POSIX: mode 0640, so the owner and the file's group (inherited
// from a setgid server folder shared with the service) can read it.
// Failures are silent, as the caller cannot do anything about them.
void GrantServiceAccess(const std::u16string& fullName);

// Lets the service's account read a file that is to be handed to it, and
// nobody else what the folder does not already allow. POSIX: mode 0640, as
// for spill files. Windows: nothing is added: the file keeps the access it
// inherits from the server folder (where the server's setup grants the
// service), so that an upload is never opened to Everyone.
void GrantServiceReadAccess(const std::u16string& fullName);

bool DeleteFileAt(const std::u16string& fullName);

// Puts `from` in the place of `to` in one step, replacing a file there: a
// reader of `to` sees the old file or the new one, never a part of either
// (MoveFileExW with MOVEFILE_REPLACE_EXISTING; rename(2)).
bool ReplaceFileWith(const std::u16string& from, const std::u16string& to);

// A spill file opened for reading. The file is named by a message from
// another process, so the name must lead to nothing but a plain file that
// this machine's server wrote:
// - POSIX: opened with O_NOFOLLOW (a symbolic link is refused) and
//   O_NONBLOCK (a named pipe cannot hold the open up), then refused unless
//   it is a regular file with one link, owned by this process's effective
//   user or root, or carrying the pipe group (VGCR_PIPE_GROUP) with no
//   write access for the group or others.
// - Windows: opened without following a reparse point, then refused when it
//   is one, is not a disk file, or has more than one link.
// A refusal is kErrorAccessDenied, with a diagnostic on POSIX.
class TempFileReader {
 public:
  TempFileReader() = default;
  ~TempFileReader();
  TempFileReader(const TempFileReader&) = delete;
  TempFileReader& operator=(const TempFileReader&) = delete;

  bool Open(const std::u16string& fullName);
  // Reads up to `size` bytes, never past the end the file had when opened;
  // returns how many were read. Fewer than asked means the file ended sooner
  // (it shrank) or a read failed: nothing more is read after that.
  uint32_t Read(void* into, uint32_t size);
  // Bytes still to read.
  uint64_t Remaining() const { return size_ - position_; }
  bool IsOpen() const { return handle_ != kNoHandle; }
  void Close();

 private:
  NativeHandle handle_ = kNoHandle;
  uint64_t size_ = 0;
  uint64_t position_ = 0;
};

// The file name part of a path (after the last '\' or '/').
std::u16string FileNamePart(const std::u16string& path);

}  // namespace plat
