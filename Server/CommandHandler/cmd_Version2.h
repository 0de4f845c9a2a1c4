// The version-2 commands the service answers, one handler each.
#pragma once

#include <string>
#include <string_view>

#include "channel/ser_MsgSerializer.h"
#include "cmd_Context.h"
#include "cmd_Reply.h"

namespace cmd {

// A handler reads the message's fields (its cursor stands at the first one)
// and, for a round trip, writes the answer's fields to `answer`. It returns
// what the log line says; an answer left unwritten is not sent, unless it
// is expected (then its prologue alone goes, at once).
using Handler2 = std::string (*)(Context& context, CMsgSerializer& message, Reply2& answer);

struct Command2 {
  const char16_t* name;
  const char16_t* pipe;  // the pipe it is sent to
  Handler2 handle;
  // The requester always waits for an answer: when the handler writes none
  // (the record was bad, the database failed) an empty one is sent at once,
  // which the requester takes as a failure, instead of letting it wait out
  // its reply time-out. A command sent either way, whose record says which,
  // leaves this false and its handler calls answer.Expect() once it has
  // read that the sender waits.
  bool roundTrip = false;
};

const Command2* FindCommand2(std::u16string_view name);

}  // namespace cmd
