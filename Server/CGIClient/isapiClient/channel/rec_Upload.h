// The announcement of an uploaded file ("CMDHLV2_SET_LOG_COMMON",
// "CMDHLV2_DLP_FORENSIC_DATA_UPLOAD"), and the rules both sides apply to
// the file's names. Once the announcement is delivered the temporary file
// belongs to the receiver.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ser_Serializer.h"

struct tagCln_UploadFile : ISerializable {
  std::u16string uid;        // at most 36 characters
  std::u16string release;    // at most 7, may be empty
  std::u16string fileName;   // the client's name for it: see IsUploadFileName
  std::u16string tempPath;   // the temporary file, directly in the server folder
  uint32_t size = 0;         // bytes
  std::u16string md5;        // 32 upper-case hexadecimal digits
  uint32_t diskStatus = 0;   // the disk threshold status it was accepted under

  bool Serialize(ISerializer& s) override;
  bool Deserialize(ISerializer& s) override;
};

namespace upload {

// The prefix of a temporary upload file's name: "upl", a unique part of
// letters and digits, ".tmp".
inline constexpr char16_t kTempPrefix[] = u"upl";
inline constexpr std::size_t kMaxFileNameChars = 200;

// A name a client may give its file: 1 to 200 characters, none of them a
// path separator ('/', '\', ':'), a NUL or another control character (C0,
// DEL, C1), no
// "..", and not ending with a dot or a blank. The name is kept as a label:
// nothing is ever opened by it.
bool IsUploadFileName(std::u16string_view name);

// The file name part of a path is of the temporary upload files' form.
bool IsTempUploadName(std::u16string_view name);

}  // namespace upload
