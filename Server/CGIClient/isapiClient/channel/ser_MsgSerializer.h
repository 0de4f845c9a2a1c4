// One command message: a prologue (format version, 16-byte header, command
// name, message identifier) followed by the fields of one command record.
#pragma once

#include <cstdint>
#include <string>

#include "ser_Serializer.h"

// What makes a message identifier unique: the tick count, process and
// thread of its sender.
struct MessageStamp {
  uint32_t tick;
  uint32_t processId;
  uint32_t threadId;
  static MessageStamp Now();
};

// "0105" + command name + tick + "_" + process id + "_" + thread id. It is
// also the name of the reply pipe of a round trip, so it must not collide
// between concurrent requests: the thread and process ids see to that.
std::u16string BuildMessageIdentifier(const std::u16string& commandName, const MessageStamp& stamp);
// Whether the text is an identifier of that form for this command: "0105",
// the command name, then three decimal numbers of at most ten digits joined
// by "_". A receiver answers only to such a name: never to a pipe it listens
// on itself, never to a path.
bool IsMessageIdentifier(const std::u16string& commandName, const std::u16string& text);

class CMsgSerializer : public CSerializer {
 public:
  static constexpr uint32_t kFormatVersion = 1;
  static constexpr uint8_t kHeaderMarker = 0xAC;  // header byte 1
  static constexpr uint8_t kFileFlag = 0x02;      // header byte 4: body is in a file

  // mode 2 makes the message file-backed from the start. A null or empty
  // command name is written as "NULL".
  explicit CMsgSerializer(const char16_t* commandName = nullptr, int mode = 1);
  CMsgSerializer(const char16_t* commandName, int mode, const MessageStamp& stamp);
  ~CMsgSerializer() override;

  // Writes the prologue again, over an empty buffer.
  void Restart() override;
  // Takes a received message and reads its prologue; the cursor then stands
  // at the first field. A file-backed message's fields are read from its
  // file, which is deleted when this serializer goes. Raises
  // CIPCMsgBufferException on a message too short for its prologue.
  bool Load(const void* bytes, uint32_t length) override;

  // Makes the message ready to send: a message that spilled to a file is
  // reduced to its prologue and the file's path, with the file flag set.
  void Finish();
  // The message's bytes, now the caller's (delete[]); the buffer is empty.
  uint8_t* DetachBytes(uint32_t* size);
  // The message was delivered: its spill file now belongs to the receiver.
  void HandOverSpillFile();

  uint32_t Version() const { return version_; }
  const uint8_t* Header() const { return header_; }
  const std::u16string& CommandName() const { return commandName_; }
  const std::u16string& Identifier() const { return identifier_; }
  const std::u16string& FilePath() const { return filePath_; }
  bool IsFileBacked() const { return (header_[4] & kFileFlag) != 0; }

 private:
  void WritePrologue();
  void ReadPrologue();

  uint32_t version_ = 0;
  uint8_t header_[16] = {};
  std::u16string commandName_;
  std::u16string identifier_;
  std::u16string filePath_;
};
