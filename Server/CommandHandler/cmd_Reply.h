// Answers to round trips. The requester listens on a reply pipe of its own;
// the service connects to it, writes the answer in pieces of at most 1024
// bytes and closes, which ends the answer.
#pragma once

#include <cstdint>
#include <string>

#include "channel/ser_Serializer.h"

namespace cmd {

// A version-2 answer: a prologue naming the request it answers (command and
// identifier), then the reply record's fields. Its pipe is the identifier.
class Reply2 {
 public:
  Reply2(std::u16string command, std::u16string identifier)
      : command_(std::move(command)), identifier_(std::move(identifier)) {}
  // The serializer to write the fields to; the prologue is written first.
  ISerializer& Fields();
  bool due() const { return due_; }
  bool Send(std::string* error);
  // The requester waits for this answer: one left unwritten is sent as the
  // prologue alone. Set for the commands that are always round trips, and
  // by a handler whose record says that its sender waits.
  void Expect() { expected_ = true; }
  bool expected() const { return expected_; }

 private:
  std::u16string command_;
  std::u16string identifier_;
  CSerializer message_;
  bool due_ = false;
  bool expected_ = false;
};

// A version-1 reader's answer: UTF-16LE text, no terminator.
bool SendText(const std::u16string& pipe, const std::u16string& text, std::string* error);

}  // namespace cmd
