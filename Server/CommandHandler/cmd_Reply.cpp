#include "cmd_Reply.h"

#include "channel/pipe_Client.h"
#include "platform/errors.h"

namespace cmd {
namespace {

constexpr uint32_t kReplyBusyWaitMs = 1000;
constexpr uint32_t kReplySendMs = 10000;  // the whole answer

bool WriteToReplyPipe(const std::u16string& pipe, const uint8_t* data, uint32_t size, std::string* error) {
  if (pipe.empty() || pipe.size() > plat::MaxPipeNameLength()) {
    *error = "no usable reply pipe name";
    return false;
  }
  // The requester listens before it asks: a reply pipe that is busy, or
  // that does not take the answer, is a peer not worth a listener's time.
  CPipeClient client;
  if (!client.Open(pipe.c_str(), PipeBounds{kReplyBusyWaitMs, kReplySendMs})) {
    *error = "reply pipe gone (error " + std::to_string(plat::LastError()) + ")";
    return false;
  }
  uint32_t length = size;
  const bool ok = client.Send(data, &length);
  if (!ok) *error = "reply cut short (error " + std::to_string(plat::LastError()) + ")";
  client.Close();
  return ok;
}

}  // namespace

ISerializer& Reply2::Fields() {
  if (!due_) {
    static constexpr uint8_t kHeader[16] = {0, 0xAC};
    ser::WriteU32(message_, 1);
    ser::WriteBlock(message_, kHeader, sizeof kHeader);
    ser::WriteWString(message_, command_);
    ser::WriteWString(message_, identifier_);
    due_ = true;
  }
  return message_;
}

bool Reply2::Send(std::string* error) {
  return WriteToReplyPipe(identifier_, message_.Buffer().Data(), message_.Buffer().BytesUsed(), error);
}

bool SendText(const std::u16string& pipe, const std::u16string& text, std::string* error) {
  // UTF-16 in memory is UTF-16LE on the platforms we build for, as the
  // extension's own text commands assume.
  return WriteToReplyPipe(pipe, reinterpret_cast<const uint8_t*>(text.data()),
                          static_cast<uint32_t>(2 * text.size()), error);
}

}  // namespace cmd
