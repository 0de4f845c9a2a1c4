#include "cmd_Dispatch.h"

#include <chrono>
#include <optional>

#include "channel/channel_Settings.h"
#include "channel/ser_MsgSerializer.h"
#include "cmd_Inbound.h"
#include "cmd_Version1.h"
#include "cmd_Version2.h"
#include "platform/text.h"
#include "svc_Log.h"
#include "channel/util_ipc_msg_buffer.h"

namespace cmd {
namespace {

// A round trip that cannot be served is told so at once: its answer's
// prologue alone, which the requester takes as a failure. Only to a reply
// pipe of the protocol's form.
std::string AnswerEmpty(bool expected, const CMsgSerializer& message) {
  if (!expected) return "";
  if (!IsMessageIdentifier(message.CommandName(), message.Identifier())) return "";
  try {
    Reply2 answer(message.CommandName(), message.Identifier());
    answer.Fields();
    std::string error;
    return answer.Send(&error) ? "; answered empty" : "; not answered: " + error;
  } catch (...) {
    return "; not answered";
  }
}

// Returns the command's name and what the log line says.
std::string RunVersion2(Context& context, const std::u16string& pipe, const PipeRequest& request,
                        std::string* name) {
  CMsgSerializer message;
  // Made once the command is known; whether its sender waits may be
  // learnt from the record itself, even when the rest of it is bad.
  std::optional<Reply2> answer;
  const auto expected = [&answer] { return answer.has_value() && answer->expected(); };
  try {
    const bool loaded = message.Load(request.bytes.data(), static_cast<uint32_t>(request.bytes.size()));
    *name = plat::ToUtf8(message.CommandName());
    const Command2* command = FindCommand2(message.CommandName());
    if (command == nullptr) return "dropped: unknown command";
    if (pipe != command->pipe) return "dropped: sent to the wrong pipe";
    // The identifier names the reply pipe: anything but the protocol's form
    // (the service's own pipe, a path) would have it answer where it must not.
    if (!IsMessageIdentifier(message.CommandName(), message.Identifier())) {
      return "dropped: its identifier is not of the protocol's form";
    }
    answer.emplace(message.CommandName(), message.Identifier());
    if (command->roundTrip) answer->Expect();
    if (!loaded) {
      return "dropped: its file " + plat::ToUtf8(message.FilePath()) + " is not a spill file" +
             AnswerEmpty(expected(), message);
    }
    std::string what = command->handle(context, message, *answer);
    if (answer->expected() && !answer->due()) {
      answer->Fields();  // the prologue alone: a failure, told at once
      what += "; answered empty";
    }
    std::string error;
    if (answer->due() && !answer->Send(&error)) what += "; not answered: " + error;
    return what;
  } catch (const CIPCMsgBufferException& e) {
    return "dropped: malformed message (" + plat::ToUtf8(CIPCMsgBufferException::MessageFor(e.Code())) + ")" +
           AnswerEmpty(expected(), message);
  } catch (const std::bad_alloc&) {
    return "dropped: out of memory";
  }
}

std::string RunVersion1(Context& context, const std::u16string& pipe, const PipeRequest& request,
                        std::string* name) {
  const std::u16string commandName = SplitText(request.bytes, 2)[0];
  *name = plat::ToUtf8(commandName);
  const Command1* command = FindCommand1(commandName);
  if (command == nullptr) return "dropped: unknown command";
  if (pipe != kCommandHandlerPipe) return "dropped: sent to the wrong pipe";
  return RunCommand1(context, *command, SplitText(request.bytes, FieldCount(*command)));
}

}  // namespace

void Dispatch(Context& context, const std::u16string& pipe, PipeRequest&& request) {
  const auto started = std::chrono::steady_clock::now();
  std::string name = "?";
  std::string what;
  if (request.tooLong) {
    what = "dropped: longer than the service takes";
  } else {
    switch (Classify(request.bytes)) {
      case Form::kVersion2:
        what = RunVersion2(context, pipe, request, &name);
        break;
      case Form::kVersion1:
        what = RunVersion1(context, pipe, request, &name);
        break;
      case Form::kGarbled:
        what = "dropped: " + std::to_string(request.bytes.size()) + " bytes that are no command";
        break;
    }
  }
  if (context.metrics != nullptr) {
    const std::u16string wide = plat::FromUtf8(name);
    const bool known = FindCommand2(wide) != nullptr || FindCommand1(wide) != nullptr;
    context.metrics->Count(name, known, what,
                           std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
  }
  svc::Log(ShortPipeName(pipe), name, what + " (pid " + std::to_string(request.clientPid) + ")");
}

}  // namespace cmd
