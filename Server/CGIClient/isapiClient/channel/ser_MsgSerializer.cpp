#include "ser_MsgSerializer.h"

#include <cstring>

#include "platform/process.h"
#include "support/str_Format.h"

MessageStamp MessageStamp::Now() {
  return MessageStamp{plat::TickCount(), plat::CurrentProcessId(), plat::CurrentThreadId()};
}

std::u16string BuildMessageIdentifier(const std::u16string& commandName, const MessageStamp& stamp) {
  char16_t prefix[8];
  fmt16::Format(prefix, 8, u"%.2d%.2d", 1, 5);
  char16_t tail[48];
  fmt16::Format(tail, 48, u"%u_%u_%u", stamp.tick, stamp.processId, stamp.threadId);
  return prefix + commandName + tail;
}

bool IsMessageIdentifier(const std::u16string& commandName, const std::u16string& text) {
  const std::u16string prefix = u"0105" + commandName;
  if (commandName.empty() || text.compare(0, prefix.size(), prefix) != 0) return false;
  int numbers = 0;
  std::size_t digits = 0;
  for (std::size_t i = prefix.size(); i < text.size(); ++i) {
    const char16_t c = text[i];
    if (c >= u'0' && c <= u'9') {
      if (++digits > 10) return false;
    } else if (c == u'_' && digits > 0 && numbers < 2) {
      ++numbers;
      digits = 0;
    } else {
      return false;
    }
  }
  return numbers == 2 && digits > 0;
}

CMsgSerializer::CMsgSerializer(const char16_t* commandName, int mode)
    : CMsgSerializer(commandName, mode, MessageStamp::Now()) {}

CMsgSerializer::CMsgSerializer(const char16_t* commandName, int mode, const MessageStamp& stamp)
    : commandName_(commandName && *commandName ? commandName : u"NULL") {
  header_[1] = kHeaderMarker;
  identifier_ = BuildMessageIdentifier(commandName_, stamp);
  WritePrologue();
  // File-backed from the start: the file gets the prologue and every field.
  if (mode == 2) buffer_.SpillNow();
}

CMsgSerializer::~CMsgSerializer() = default;

void CMsgSerializer::WritePrologue() {
  const uint32_t versionItem[2] = {4, kFormatVersion};
  buffer_.Append(versionItem, sizeof versionItem);
  Write(header_, sizeof header_);
  ser::WriteWString(*this, commandName_);
  ser::WriteWString(*this, identifier_);
  ReadPrologue();
}

void CMsgSerializer::ReadPrologue() {
  uint32_t size = 4;
  version_ = 0;
  Read(&version_, &size);
  // A header item longer than 16 bytes is skipped, not taken as the header.
  if (buffer_.PeekU32() < 17) {
    uint32_t length = 0;
    const uint8_t* item = buffer_.ReadItem(&length);
    std::memset(header_, 0, sizeof header_);
    std::memcpy(header_, item, length < 16 ? length : 16);
  } else {
    uint32_t length = 0;
    buffer_.ReadItem(&length);
  }
  ser::ReadWString(*this, &commandName_);
  ser::ReadWString(*this, &identifier_);
}

void CMsgSerializer::Restart() {
  buffer_.Clear();
  WritePrologue();
}

bool CMsgSerializer::Load(const void* bytes, uint32_t length) {
  buffer_.Attach(bytes, length);
  filePath_.clear();
  ReadPrologue();
  if (IsFileBacked()) {
    ser::ReadWString(*this, &filePath_);
    if (!buffer_.OpenSpillForInput(filePath_)) return false;
    // This side has read the message; nobody else will.
    buffer_.SetDeleteSpillFile(true);
    // The file holds the whole message as built: its own prologue first.
    uint8_t header[16];
    std::memcpy(header, header_, sizeof header);
    ReadPrologue();
    std::memcpy(header_, header, sizeof header);
  }
  return true;
}

void CMsgSerializer::Finish() {
  if (!buffer_.HasSpillStream()) return;
  buffer_.CloseSpillStream();
  filePath_ = buffer_.SpillPath();
  Restart();
  ser::WriteWString(*this, filePath_);
  header_[4] = static_cast<uint8_t>((header_[4] & ~0x01) | kFileFlag);
  // The header item sits behind the version item: length word at 8, bytes at 12.
  uint8_t* data = buffer_.Data();
  uint32_t headerLength = 0;
  std::memcpy(&headerLength, data + 8, 4);
  if (headerLength == 16) std::memcpy(data + 12, header_, 12);
}

uint8_t* CMsgSerializer::DetachBytes(uint32_t* size) { return buffer_.Detach(size); }

void CMsgSerializer::HandOverSpillFile() { buffer_.SetDeleteSpillFile(false); }
