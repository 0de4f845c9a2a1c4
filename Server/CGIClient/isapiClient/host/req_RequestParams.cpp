#include "req_RequestParams.h"

#include <cstring>
#include <random>
#include <memory>

#include "platform/codepage.h"
#include "platform/text.h"
#include "support/mbwc_MBWC.h"
#include "support/utf_Converter.h"

namespace {

unsigned char Upper(unsigned char c) { return c >= 'a' && c <= 'z' ? static_cast<unsigned char>(c - 32) : c; }

unsigned HexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return 65535;
}

// Copies one name or value from in[*at] into out, decoding as it goes;
// stops before a byte in `stops` (or the end) and reports which one it was.
char CopyDecoded(const char* in, std::size_t length, std::size_t* at, const char* stops, std::string* out) {
  out->clear();
  bool ended = false;  // a short escape wrote a NUL: the string is over
  while (*at < length) {
    const auto c = static_cast<unsigned char>(in[*at]);
    if (std::strchr(stops, c) != nullptr) {
      ++*at;
      return static_cast<char>(c);
    }
    unsigned char byte = c;
    if (c == '+') {
      byte = ' ';
      ++*at;
    } else if (c == '%') {
      if (length - *at < 3) {
        byte = 0;
        *at = length;
      } else {
        unsigned value = 16 * HexValue(static_cast<unsigned char>(in[*at + 1])) +
                         HexValue(static_cast<unsigned char>(in[*at + 2]));
        byte = static_cast<unsigned char>(value % 256);
        *at += 3;
      }
    } else {
      ++*at;
    }
    if (byte == 0) ended = true;
    if (!ended) out->push_back(static_cast<char>(byte));
  }
  return '\0';
}

}  // namespace

// The buckets are placed by a hash keyed per process: with a fixed hash, a
// client could send names that all land in one bucket and make every
// insertion walk the others. Names still match without regard to case,
// which is all that clients can see.
std::size_t RequestParams::NameHash::operator()(const std::string& name) const {
  static const uint64_t key = [] {
    std::random_device random;
    return (uint64_t{random()} << 32) ^ random() ^ 0xcbf29ce484222325u;
  }();
  uint64_t hash = key;
  for (char c : name) hash = (hash ^ Upper(static_cast<unsigned char>(c))) * 0x100000001b3u;
  hash ^= hash >> 33;
  hash *= 0xff51afd7ed558ccdu;
  hash ^= hash >> 33;
  return static_cast<std::size_t>(hash);
}

bool RequestParams::NameEqual::operator()(const std::string& a, const std::string& b) const {
  return plat::EqualsIgnoringAsciiCase(a, b);
}

void RequestParams::Parse(const char* text, std::size_t length) {
  if (text == nullptr) return;
  const void* nul = std::memchr(text, '\0', length);
  if (nul) length = static_cast<std::size_t>(static_cast<const char*>(nul) - text);
  std::size_t at = 0;
  std::string name, value;
  while (at < length) {
    char stop = CopyDecoded(text, length, &at, "=&", &name);
    value.clear();
    if (stop == '=') stop = CopyDecoded(text, length, &at, "&#", &value);
    Set(name, value);
    if (stop == '#') break;
  }
}

void RequestParams::Set(const std::string& name, const std::string& value) {
  if (map_.size() < kMaxParameters || map_.count(name) != 0) map_.insert_or_assign(name, value);
}

const std::string* RequestParams::Lookup(const char* name) const {
  if (name == nullptr) return nullptr;
  auto it = map_.find(name);
  return it == map_.end() ? nullptr : &it->second;
}

bool RequestParams::GetString(const char* name, std::u16string* out, uint32_t limit, bool exact) const {
  const std::string* value = Lookup(name);
  if (value == nullptr) return false;
  std::unique_ptr<char16_t[]> decoded = UTFConverter::decodeUTF(value->c_str());
  if (!decoded) return false;
  out->assign(decoded.get());
  return exact ? out->size() == limit : out->size() <= limit;
}

bool RequestParams::GetStringA(const char* name, std::string* out, uint32_t limit, bool exact) const {
  std::u16string wide;
  if (!GetString(name, &wide, limit, exact)) return false;
  return MBWC::WCToMBString(wide.c_str(), out, plat::kCpAcp, 0);
}
