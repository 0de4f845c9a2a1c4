// Publishes the server's memory or disk threshold record, as the monitoring
// service does, for as long as the object lives.
#pragma once

#include <cstdint>

#include "platform/shared_memory.h"

class GuardRecord {
 public:
  explicit GuardRecord(const char16_t* name);
  ~GuardRecord();
  bool ok() const { return words_ != nullptr; }
  void Set(uint32_t word0, uint32_t word1, uint32_t word2);

 private:
  const char16_t* name_;
  plat::SharedMemory memory_;
  uint32_t* words_ = nullptr;
};
