#include "rec_Upload.h"

bool tagCln_UploadFile::Serialize(ISerializer& s) {
  return ser::WriteWString(s, uid) && ser::WriteWString(s, release) && ser::WriteWString(s, fileName) &&
         ser::WriteWString(s, tempPath) && ser::WriteU32(s, size) && ser::WriteWString(s, md5) &&
         ser::WriteU32(s, diskStatus);
}

bool tagCln_UploadFile::Deserialize(ISerializer& s) {
  return ser::ReadWString(s, &uid) && ser::ReadWString(s, &release) && ser::ReadWString(s, &fileName) &&
         ser::ReadWString(s, &tempPath) && ser::ReadU32(s, &size) && ser::ReadWString(s, &md5) &&
         ser::ReadU32(s, &diskStatus);
}

namespace upload {

bool IsUploadFileName(std::u16string_view name) {
  if (name.empty() || name.size() > kMaxFileNameChars) return false;
  if (name.find(u"..") != std::u16string_view::npos) return false;
  if (name.back() == u'.' || name.back() == u' ') return false;
  for (const char16_t c : name) {
    if (c < 0x20 || (c >= 0x7F && c <= 0x9F) || c == u'/' || c == u'\\' || c == u':') return false;
  }
  return true;
}

bool IsTempUploadName(std::u16string_view name) {
  constexpr std::u16string_view prefix = kTempPrefix;
  constexpr std::u16string_view suffix = u".tmp";
  if (name.size() <= prefix.size() + suffix.size()) return false;
  auto lower = [](char16_t c) { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c; };
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    if (lower(name[i]) != prefix[i]) return false;
  }
  for (std::size_t i = 0; i < suffix.size(); ++i) {
    if (lower(name[name.size() - suffix.size() + i]) != suffix[i]) return false;
  }
  for (const char16_t c : name.substr(prefix.size(), name.size() - prefix.size() - suffix.size())) {
    if (!((c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'))) return false;
  }
  return true;
}

}  // namespace upload
