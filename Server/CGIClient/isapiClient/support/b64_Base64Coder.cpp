#include "b64_Base64Coder.h"

#include <array>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// 0 to 63 for alphabet letters, kSkip for white space, kPad for '=', kBad else.
constexpr int8_t kSkip = -1, kPad = -2, kBad = -3;

constexpr std::array<int8_t, 256> MakeTable() {
  std::array<int8_t, 256> table{};
  for (auto& v : table) v = kBad;
  for (int i = 0; i < 64; ++i) table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int8_t>(i);
  table['\r'] = table['\n'] = table[' '] = table['\t'] = kSkip;
  table['='] = kPad;
  return table;
}
constexpr auto kTable = MakeTable();

}  // namespace

std::string Base64Coder::Encode(const void* data, std::size_t size) {
  const auto* in = static_cast<const uint8_t*>(data);
  std::string out;
  out.reserve((size + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    uint32_t v = uint32_t{in[i]} << 16 | uint32_t{in[i + 1]} << 8 | in[i + 2];
    out += kAlphabet[v >> 18];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += kAlphabet[v & 63];
  }
  if (size - i == 1) {
    uint32_t v = uint32_t{in[i]} << 16;
    out += kAlphabet[v >> 18];
    out += kAlphabet[(v >> 12) & 63];
    out += "==";
  } else if (size - i == 2) {
    uint32_t v = uint32_t{in[i]} << 16 | uint32_t{in[i + 1]} << 8;
    out += kAlphabet[v >> 18];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += '=';
  }
  return out;
}

bool Base64Coder::Decode(std::string_view text, std::vector<uint8_t>* out) {
  out->clear();
  uint32_t bits = 0;
  int count = 0;   // letters in the current group of four
  int padding = 0;
  for (char c : text) {
    int8_t v = kTable[static_cast<unsigned char>(c)];
    if (v == kSkip) continue;
    if (v == kBad || (v >= 0 && padding > 0)) {
      out->clear();
      return false;
    }
    if (v == kPad) {
      // Padding only completes a group of two or three letters.
      if (count + padding < 2 || count + padding >= 4) {
        out->clear();
        return false;
      }
      ++padding;
      continue;
    }
    bits = bits << 6 | static_cast<uint32_t>(v);
    if (++count == 4) {
      out->push_back(static_cast<uint8_t>(bits >> 16));
      out->push_back(static_cast<uint8_t>(bits >> 8));
      out->push_back(static_cast<uint8_t>(bits));
      bits = 0;
      count = 0;
    }
  }
  if (padding > 0 && count + padding != 4) {
    out->clear();
    return false;
  }
  if (count == 1) {  // six bits make no byte
    out->clear();
    return false;
  }
  if (count == 2) {
    out->push_back(static_cast<uint8_t>(bits >> 4));
  } else if (count == 3) {
    out->push_back(static_cast<uint8_t>(bits >> 10));
    out->push_back(static_cast<uint8_t>(bits >> 2));
  }
  return true;
}
