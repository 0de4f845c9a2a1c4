#include "hex_Format.h"

namespace HexFormat {
namespace {
constexpr char kDigits[] = "0123456789ABCDEF";
}

std::string Bytes(const uint8_t* data, std::size_t size) {
  std::string out(size * 2, '0');
  for (std::size_t i = 0; i < size; ++i) {
    out[2 * i] = kDigits[data[i] >> 4];
    out[2 * i + 1] = kDigits[data[i] & 15];
  }
  return out;
}

std::string Word(uint32_t value) {
  std::string out(8, '0');
  for (int i = 7; i >= 0; --i, value >>= 4) out[static_cast<std::size_t>(i)] = kDigits[value & 15];
  return out;
}

}  // namespace HexFormat
