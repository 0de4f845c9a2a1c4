#include "wire_format.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "platform/temp_file.h"
#include "platform/text.h"

#if defined(_WIN32)
#include <filesystem>
#endif

namespace peer {
namespace {

uint32_t LoadU32(const uint8_t* p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

bool ReadFileBytes(const std::u16string& path, Bytes* out) {
#if defined(_WIN32)
  std::ifstream in(std::filesystem::path(path), std::ios::binary);
#else
  std::ifstream in(plat::ToUtf8(path), std::ios::binary);
#endif
  if (!in) return false;
  out->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return true;
}

// Reads the prologue items from items[*next...]; false with the reason.
bool TakePrologue(const std::vector<Bytes>& items, std::size_t* next, Message* m) {
  if (items.size() < *next + 4) {
    m->error = "fewer than four prologue items";
    return false;
  }
  if (items[*next].size() != 4) {
    m->error = "version item is not 4 bytes";
    return false;
  }
  m->version = AsU32(items[*next]);
  const Bytes& header = items[*next + 1];
  if (header.size() != 16) {
    m->error = "header item is not 16 bytes";
    return false;
  }
  std::memcpy(m->header.data(), header.data(), 16);
  m->command = AsWString(items[*next + 2]);
  m->identifier = AsWString(items[*next + 3]);
  *next += 4;
  return true;
}

}  // namespace

bool SplitItems(const uint8_t* data, std::size_t size, std::vector<Bytes>* items, std::string* error) {
  items->clear();
  std::size_t at = 0;
  while (at < size) {
    if (size - at < 4) {
      *error = "a length word cut short at offset " + std::to_string(at);
      return false;
    }
    uint32_t n = LoadU32(data + at);
    at += 4;
    if (n > size - at) {
      *error = "item of " + std::to_string(n) + " bytes runs past the end at offset " + std::to_string(at);
      return false;
    }
    items->emplace_back(data + at, data + at + n);
    at += n;
  }
  return true;
}

bool IsVersion2(const Bytes& bytes) {
  static const uint8_t kVersionItem[8] = {4, 0, 0, 0, 1, 0, 0, 0};
  return bytes.size() >= 8 && std::memcmp(bytes.data(), kVersionItem, 8) == 0;
}

Message DecodeMessage(const Bytes& bytes, bool deleteFile) {
  Message m;
  std::vector<Bytes> items;
  if (!SplitItems(bytes.data(), bytes.size(), &items, &m.error)) return m;
  std::size_t next = 0;
  if (!TakePrologue(items, &next, &m)) return m;
  m.fileBacked = (m.header[4] & 0x02) != 0;
  if (!m.fileBacked) {
    m.fields.assign(items.begin() + static_cast<std::ptrdiff_t>(next), items.end());
    m.ok = true;
    return m;
  }
  if (items.size() != next + 1) {
    m.error = "a file-backed message must hold exactly one path item";
    return m;
  }
  m.filePath = AsWString(items[next]);
  Bytes file;
  if (!ReadFileBytes(m.filePath, &file)) {
    m.error = "cannot read " + plat::ToUtf8(m.filePath);
    return m;
  }
  if (deleteFile) plat::DeleteFileAt(m.filePath);
  std::vector<Bytes> fileItems;
  if (!SplitItems(file.data(), file.size(), &fileItems, &m.error)) return m;
  Message inFile;
  std::size_t fileNext = 0;
  if (!TakePrologue(fileItems, &fileNext, &inFile)) {
    m.error = "file: " + inFile.error;
    return m;
  }
  if (inFile.command != m.command || inFile.identifier != m.identifier) {
    m.error = "the file's prologue names another message";
    return m;
  }
  m.fields.assign(fileItems.begin() + static_cast<std::ptrdiff_t>(fileNext), fileItems.end());
  m.ok = true;
  return m;
}

std::vector<std::u16string> DecodeText(const Bytes& bytes) {
  std::vector<std::u16string> fields(1);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    char16_t unit = static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8);
    if (unit == u'\t') {
      fields.emplace_back();
    } else {
      fields.back().push_back(unit);
    }
  }
  return fields;
}

uint32_t AsU32(const Bytes& item) { return item.size() >= 4 ? LoadU32(item.data()) : 0; }

std::u16string AsWString(const Bytes& item) {
  std::u16string text;
  for (std::size_t i = 0; i + 1 < item.size(); i += 2) {
    char16_t unit = static_cast<char16_t>(item[i] | item[i + 1] << 8);
    if (unit == 0) break;
    text.push_back(unit);
  }
  return text;
}

std::string AsString(const Bytes& item) {
  std::string text(item.begin(), item.end());
  return text.substr(0, text.find('\0'));
}

Builder& Builder::U32(uint32_t value) {
  Bytes item = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value >> 16),
                static_cast<uint8_t>(value >> 24)};
  return Block(item);
}

Builder& Builder::WString(const std::u16string& text) {
  Bytes item;
  for (char16_t c : text) {
    item.push_back(static_cast<uint8_t>(c));
    item.push_back(static_cast<uint8_t>(c >> 8));
  }
  item.push_back(0);
  item.push_back(0);
  return Block(item);
}

Builder& Builder::Block(const Bytes& bytes) {
  const auto n = static_cast<uint32_t>(bytes.size());
  Bytes length = {static_cast<uint8_t>(n), static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n >> 16),
                  static_cast<uint8_t>(n >> 24)};
  bytes_.insert(bytes_.end(), length.begin(), length.end());
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  return *this;
}

Builder& Builder::Raw(const Bytes& bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  return *this;
}

Builder& Builder::Prologue(const std::u16string& command, const std::u16string& identifier) {
  U32(1);
  Bytes header(16, 0);
  header[1] = 0xAC;
  Block(header);
  WString(command);
  return WString(identifier);
}

Bytes TextBytes(const std::u16string& text) {
  Bytes bytes;
  for (char16_t c : text) {
    bytes.push_back(static_cast<uint8_t>(c));
    bytes.push_back(static_cast<uint8_t>(c >> 8));
  }
  return bytes;
}

}  // namespace peer
