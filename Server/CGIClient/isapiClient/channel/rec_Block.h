// A record that travels as one fixed block: one item of exactly its size,
// zeroed when made, its fields laid down through rec_Coding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "rec_Coding.h"
#include "ser_Serializer.h"

namespace rec {

template <std::size_t N>
struct Block : ISerializable {
  static constexpr std::size_t kSize = N;
  uint8_t block[N] = {};

  void Put(const Field& f, int64_t value) { PutNumber(block, f, value); }
  void Put(const Field& f, std::u16string_view text) { PutText(block + f.offset, f.size / 2, text); }
  int64_t Number(const Field& f) const { return GetNumber(block, f); }
  std::u16string Text(const Field& f) const { return GetText(block + f.offset, f.size / 2); }

  bool Serialize(ISerializer& s) override { return ser::WriteBlock(s, block, N); }
  bool Deserialize(ISerializer& s) override { return ser::ReadBlock(s, block, N); }
};

}  // namespace rec
