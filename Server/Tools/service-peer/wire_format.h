// The command message wire format, decoded and encoded from its byte layout
// alone, without the channel's own classes: a test that used the channel on
// both ends could not see a mistake the two ends share.
//
// Item: u32 length (little-endian), then that many bytes. Message: version
// item (04 00 00 00 01 00 00 00), 16-byte header item (byte 1 = 0xAC; byte 4
// bit 1 = body in a file), command name, identifier (wide strings with their
// NUL), then the record's fields; a file-backed message has the file's path
// as a third wide string, and the file holds the whole message.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace peer {

using Bytes = std::vector<uint8_t>;

struct Message {
  bool ok = false;
  std::string error;
  uint32_t version = 0;
  std::array<uint8_t, 16> header{};
  std::u16string command;
  std::u16string identifier;
  bool fileBacked = false;
  std::u16string filePath;
  std::vector<Bytes> fields;  // the record's items, in order
};

// Splits bytes into items; false (with the reason) on a length that runs
// past the end.
bool SplitItems(const uint8_t* data, std::size_t size, std::vector<Bytes>* items, std::string* error);

// A version-2 message; a file-backed one is read from its file, which is
// then deleted when deleteFile is set (as the service does).
Message DecodeMessage(const Bytes& bytes, bool deleteFile);

// Does this look like a version-2 message rather than a version-1 text?
bool IsVersion2(const Bytes& bytes);

// A version-1 text: UTF-16LE, fields split at tabs.
std::vector<std::u16string> DecodeText(const Bytes& bytes);

uint32_t AsU32(const Bytes& item);
// A wide-string item: its characters, without the NUL.
std::u16string AsWString(const Bytes& item);
std::string AsString(const Bytes& item);

// Builds items for replies.
class Builder {
 public:
  Builder& U32(uint32_t value);
  Builder& I32(int32_t value) { return U32(static_cast<uint32_t>(value)); }
  Builder& WString(const std::u16string& text);
  Builder& Block(const Bytes& bytes);
  Builder& Raw(const Bytes& bytes);
  // The version item, the header, the command name and the identifier.
  Builder& Prologue(const std::u16string& command, const std::u16string& identifier);
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
};

Bytes TextBytes(const std::u16string& text);

}  // namespace peer
