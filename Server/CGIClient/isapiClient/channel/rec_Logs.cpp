#include "rec_Logs.h"

#include "rec_Coding.h"

namespace logrec {

const Layout* FindLayout(std::u16string_view command) {
  for (const Layout* layout : kLayouts) {
    if (command == layout->command) return layout;
  }
  return nullptr;
}

tagCln_Log::tagCln_Log(const Layout& layout)
    : layout_(&layout), texts_(layout.keys.size()), numbers_(layout.keys.size(), 0) {}

void tagCln_Log::SetUid(std::string_view text) { rec::PutNarrow(uid_, kUidBytes, text); }
void tagCln_Log::SetRelease(std::string_view text) { rec::PutNarrow(release_, kReleaseBytes, text); }
std::string tagCln_Log::Uid() const { return rec::GetNarrow(uid_, kUidBytes); }
std::string tagCln_Log::Release() const { return rec::GetNarrow(release_, kReleaseBytes); }

void tagCln_Log::SetText(std::size_t key, std::u16string_view text) {
  texts_[key] = rec::CutText(text, layout_->keys[key].width);
}

std::size_t tagCln_Log::WireSize() const {
  std::size_t size = (4 + kUidBytes) + (4 + kReleaseBytes) + (4 + 4);
  for (std::size_t i = 0; i < layout_->keys.size(); ++i) {
    size += 4 + (layout_->keys[i].value == Value::kText ? 2 * (texts_[i].size() + 1) : 4);
  }
  return size;
}

bool tagCln_Log::Serialize(ISerializer& s) {
  if (!ser::WriteBlock(s, uid_, kUidBytes) || !ser::WriteBlock(s, release_, kReleaseBytes) ||
      !ser::WriteI32(s, recordType))
    return false;
  for (std::size_t i = 0; i < layout_->keys.size(); ++i) {
    const bool ok = layout_->keys[i].value == Value::kText ? ser::WriteWString(s, texts_[i])
                                                           : ser::WriteI32(s, numbers_[i]);
    if (!ok) return false;
  }
  return true;
}

bool tagCln_Log::Deserialize(ISerializer& s) {
  if (!ser::ReadBlock(s, uid_, kUidBytes) || !ser::ReadBlock(s, release_, kReleaseBytes) ||
      !ser::ReadI32(s, &recordType))
    return false;
  // The blocks are terminated inside themselves whatever the sender put.
  uid_[kUidBytes - 1] = 0;
  release_[kReleaseBytes - 1] = 0;
  for (std::size_t i = 0; i < layout_->keys.size(); ++i) {
    if (layout_->keys[i].value == Value::kNumber) {
      if (!ser::ReadI32(s, &numbers_[i])) return false;
      continue;
    }
    std::u16string text;
    if (!ser::ReadWString(s, &text)) return false;
    SetText(i, text);
  }
  return true;
}

}  // namespace logrec
