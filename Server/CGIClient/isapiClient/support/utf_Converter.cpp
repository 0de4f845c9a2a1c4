#include "utf_Converter.h"

#include <cstring>
#include <new>

namespace UTFConverter {
namespace {

bool IsContinuation(unsigned char b) { return (b & 0xC0) == 0x80; }

}  // namespace

std::unique_ptr<char16_t[]> decodeUTF(const char* text) {
  if (text == nullptr) return nullptr;
  const std::size_t length = std::strlen(text);
  std::unique_ptr<char16_t[]> out(new (std::nothrow) char16_t[length + 1]);
  if (!out) return nullptr;
  const auto* in = reinterpret_cast<const unsigned char*>(text);
  std::size_t i = 0;
  std::size_t n = 0;
  while (i < length) {
    unsigned char lead = in[i];
    switch (lead >> 4) {
      case 0: case 1: case 2: case 3: case 4: case 5: case 6: case 7:
        out[n++] = lead;
        i += 1;
        continue;
      case 12:
      case 13:
        if (i + 1 >= length || !IsContinuation(in[i + 1])) break;
        out[n++] = static_cast<char16_t>((lead & 0x1F) << 6 | (in[i + 1] & 0x3F));
        i += 2;
        continue;
      case 14:
        if (i + 2 >= length || !IsContinuation(in[i + 1]) || !IsContinuation(in[i + 2])) break;
        out[n++] = static_cast<char16_t>(lead << 12 | (in[i + 1] & 0x3F) << 6 | (in[i + 2] & 0x3F));
        i += 3;
        continue;
      default:  // 8 to 11: a continuation byte as a lead; 15: four bytes and more
        break;
    }
    out[0] = u'\0';
    return out;
  }
  out[n] = u'\0';
  return out;
}

}  // namespace UTFConverter
