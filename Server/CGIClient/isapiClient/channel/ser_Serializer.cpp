#include "ser_Serializer.h"

#include <cstring>
#include <vector>

CSerializer::CSerializer() : buffer_(1024, true) {}
CSerializer::~CSerializer() = default;

uint32_t CSerializer::GetSize() { return buffer_.BytesUsed(); }
ISerializer* CSerializer::GetSerializer() { return this; }

bool CSerializer::Read(void* destination, uint32_t* size) {
  if (size == nullptr) return false;
  const uint32_t itemLength = buffer_.PeekU32();
  if (destination == nullptr || *size < itemLength) {
    *size = itemLength;
    return false;
  }
  std::memset(destination, 0, *size);
  uint32_t length = 0;
  const uint8_t* item = buffer_.ReadItem(&length);
  std::memcpy(destination, item, length < *size ? length : *size);
  return true;
}

bool CSerializer::Write(const void* source, uint32_t size) {
  if (source == nullptr) return false;
  buffer_.Append(&size, 4);
  buffer_.Append(source, size);
  return true;
}

ISerializer& CSerializer::operator<<(ISerializable& record) {
  record.Serialize(*this);
  return *this;
}

ISerializer& CSerializer::operator>>(ISerializable& record) {
  record.Deserialize(*this);
  return *this;
}

void CSerializer::Restart() { buffer_.Clear(); }

bool CSerializer::Load(const void* bytes, uint32_t length) {
  buffer_.Attach(bytes, length);
  return true;
}

namespace ser {

bool WriteU32(ISerializer& s, uint32_t value) { return s.Write(&value, 4); }
bool WriteI32(ISerializer& s, int32_t value) { return s.Write(&value, 4); }

bool WriteWString(ISerializer& s, const char16_t* text) {
  static const char16_t kEmpty[1] = {};
  if (text == nullptr) text = kEmpty;
  std::size_t n = 0;
  while (text[n]) ++n;
  return s.Write(text, static_cast<uint32_t>((n + 1) * sizeof(char16_t)));
}

bool WriteWString(ISerializer& s, const std::u16string& text) {
  return s.Write(text.c_str(), static_cast<uint32_t>((text.size() + 1) * sizeof(char16_t)));
}

bool WriteString(ISerializer& s, const char* text) {
  if (text == nullptr) text = "";
  return s.Write(text, static_cast<uint32_t>(std::strlen(text) + 1));
}

bool WriteBlock(ISerializer& s, const void* data, uint32_t size) { return s.Write(data, size); }

bool ReadU32(ISerializer& s, uint32_t* value) {
  uint32_t size = 4;
  return s.Read(value, &size);
}

bool ReadI32(ISerializer& s, int32_t* value) {
  uint32_t size = 4;
  return s.Read(value, &size);
}

namespace {
// A length that the message cannot back is read the ordinary way, which
// traces and raises, instead of being allocated for.
void RefuseImpossibleLength(ISerializer& s) {
  if (auto* cs = dynamic_cast<CSerializer*>(s.GetSerializer()); cs && !cs->Buffer().NextItemAvailable()) {
    uint32_t length = 0;
    cs->Buffer().ReadItem(&length);
  }
}
}  // namespace

bool ReadWString(ISerializer& s, std::u16string* text) {
  RefuseImpossibleLength(s);
  uint32_t size = 0;
  s.Read(nullptr, &size);
  std::vector<char16_t> units(size / 2 + 1, u'\0');
  uint32_t bytes = static_cast<uint32_t>(units.size() * sizeof(char16_t));
  if (!s.Read(units.data(), &bytes)) return false;
  std::size_t n = size >= 2 ? size / 2 - 1 : 0;
  std::size_t end = 0;
  while (end < n && units[end]) ++end;
  text->assign(units.data(), end);
  return true;
}

bool ReadString(ISerializer& s, std::string* text) {
  RefuseImpossibleLength(s);
  uint32_t size = 0;
  s.Read(nullptr, &size);
  std::vector<char> bytes(size + 1, '\0');
  uint32_t capacity = size + 1;
  if (!s.Read(bytes.data(), &capacity)) return false;
  std::size_t n = size >= 1 ? size - 1 : 0;
  std::size_t end = 0;
  while (end < n && bytes[end]) ++end;
  text->assign(bytes.data(), end);
  return true;
}

bool ReadBlock(ISerializer& s, void* data, uint32_t size) { return s.Read(data, &size); }

bool ReadBytes(ISerializer& s, std::vector<uint8_t>* bytes) {
  RefuseImpossibleLength(s);
  uint32_t size = 0;
  s.Read(nullptr, &size);
  bytes->assign(size + 1, 0);  // room for one byte even when the item is empty
  uint32_t room = size + 1;
  if (!s.Read(bytes->data(), &room)) return false;
  bytes->resize(size);
  return true;
}

}  // namespace ser
