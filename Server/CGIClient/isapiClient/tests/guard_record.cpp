#include "guard_record.h"

GuardRecord::GuardRecord(const char16_t* name) : name_(name) {
  if (memory_.Create(name, 12)) words_ = static_cast<uint32_t*>(memory_.Map(12, plat::MapAccess::kReadWrite));
}

GuardRecord::~GuardRecord() {
  memory_.Close();
  plat::SharedMemory::Remove(name_);
}

void GuardRecord::Set(uint32_t word0, uint32_t word1, uint32_t word2) {
  words_[0] = word0;
  words_[1] = word1;
  words_[2] = word2;
}
