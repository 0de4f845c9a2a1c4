// Fuzz target: a command message as it arrives from a pipe, loaded and read
// field by field as a record would.
#include <cstddef>
#include <cstdint>
#include <string>

#include "channel/ser_MsgSerializer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 1u << 20) return 0;
  CMsgSerializer message;
  try {
    if (!message.Load(data, static_cast<uint32_t>(size))) return 0;
    for (int i = 0; i < 64; ++i) {
      std::u16string text;
      uint32_t number = 0;
      std::string narrow;
      uint8_t block[16];
      switch (i % 4) {
        case 0: ser::ReadWString(message, &text); break;
        case 1: ser::ReadU32(message, &number); break;
        case 2: ser::ReadString(message, &narrow); break;
        default: ser::ReadBlock(message, block, sizeof block); break;
      }
    }
  } catch (const CIPCMsgBufferException&) {
    // A malformed message ends here, as at a handler's boundary.
  }
  return 0;
}
