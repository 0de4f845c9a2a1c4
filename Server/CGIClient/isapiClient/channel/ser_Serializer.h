// Serializers: records write and read their fields through ISerializer, and
// the serializer lays each field down as a length-prefixed item (a u32
// length, little-endian, then that many bytes) in its CIPCMsgBuffer.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "util_ipc_msg_buffer.h"

class ISerializable;

class ISerializer {
 public:
  // Slot order is part of the design; keep it.
  virtual uint32_t GetSize() = 0;
  virtual ISerializer* GetSerializer() = 0;
  // Reads the next item into destination. With a null destination, or a
  // size smaller than the item, stores the item's length in *size and
  // returns false (a size query). Otherwise zeroes size bytes, copies
  // min(size, item length) and returns true.
  virtual bool Read(void* destination, uint32_t* size) = 0;
  // Appends size as a u32, then the bytes. False for a null source.
  virtual bool Write(const void* source, uint32_t size) = 0;
  virtual ISerializer& operator<<(ISerializable& record) = 0;
  virtual ISerializer& operator>>(ISerializable& record) = 0;
  virtual void Restart() = 0;
  virtual bool Load(const void* bytes, uint32_t length) = 0;

 protected:
  ~ISerializer() = default;
};

class ISerializable {
 public:
  virtual ~ISerializable() = default;
  virtual bool Deserialize(ISerializer& serializer) = 0;
  virtual bool Serialize(ISerializer& serializer) = 0;
};

class CSerializer : public ISerializer {
 public:
  CSerializer();
  virtual ~CSerializer();

  uint32_t GetSize() override;
  ISerializer* GetSerializer() override;
  bool Read(void* destination, uint32_t* size) override;
  bool Write(const void* source, uint32_t size) override;
  ISerializer& operator<<(ISerializable& record) override;
  ISerializer& operator>>(ISerializable& record) override;
  void Restart() override;
  bool Load(const void* bytes, uint32_t length) override;

  CIPCMsgBuffer& Buffer() { return buffer_; }

 protected:
  CIPCMsgBuffer buffer_;
};

// Field helpers for records, in the item kinds of the wire format.
namespace ser {

bool WriteU32(ISerializer& s, uint32_t value);
bool WriteI32(ISerializer& s, int32_t value);
// A wide string item: 2 x (characters + 1) bytes, the terminator included.
bool WriteWString(ISerializer& s, const char16_t* text);
bool WriteWString(ISerializer& s, const std::u16string& text);
// A narrow string item: characters + 1 bytes.
bool WriteString(ISerializer& s, const char* text);
bool WriteBlock(ISerializer& s, const void* data, uint32_t size);

bool ReadU32(ISerializer& s, uint32_t* value);
bool ReadI32(ISerializer& s, int32_t* value);
// (length / 2) - 1 characters, stopping early at an embedded terminator.
bool ReadWString(ISerializer& s, std::u16string* text);
bool ReadString(ISerializer& s, std::string* text);
// A fixed block: exactly size bytes expected; a shorter item is zero-filled.
bool ReadBlock(ISerializer& s, void* data, uint32_t size);
// A block of whatever length the item has.
bool ReadBytes(ISerializer& s, std::vector<uint8_t>* bytes);

}  // namespace ser
