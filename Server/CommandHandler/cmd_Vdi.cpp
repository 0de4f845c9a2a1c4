#include "cmd_Vdi.h"

#include "channel/channel_Settings.h"
#include "channel/rec_Vdi.h"
#include "platform/text.h"

namespace cmd {
namespace {

enum class Kind { kStart, kRunning, kComplete };

// Why the record cannot be served; empty when it can.
std::string Refusal(const tagCln_VdiTask& task, Kind kind) {
  if (task.uid.empty() || task.uid.size() > 36) return "a uid of " + std::to_string(task.uid.size()) + " characters";
  if (task.pool.empty() || task.pool.size() > vdi::kMaxPool) return "no pool, or one too long";
  if (task.taskId.empty() || task.taskId.size() > vdi::kMaxTaskId) return "no task id, or one too long";
  if (kind == Kind::kStart && (task.taskKind.empty() || task.taskKind.size() > vdi::kMaxTaskKind))
    return "no task kind, or one too long";
  if (kind == Kind::kRunning && (task.progress < 0 || task.progress > 100))
    return "a progress of " + std::to_string(task.progress);
  return "";
}

std::string Describe(int32_t decision, const st::VdiDecision& d) {
  switch (decision) {
    case tagCln_VdiAnswer::kStart: return "start";
    case tagCln_VdiAnswer::kWait:
      return "wait " + std::to_string(d.retryAfter) + " s, place " + std::to_string(d.position);
    case tagCln_VdiAnswer::kNoted: return "noted";
    case tagCln_VdiAnswer::kUnknownClient: return "unknown client";
    case tagCln_VdiAnswer::kUnknownTask: return "no such task running";
    default: return "?";
  }
}

std::string OnVdi(Context& context, CMsgSerializer& message, Reply2& answer, Kind kind) {
  tagCln_VdiTask task;
  if (!task.Deserialize(message)) return "dropped: incomplete record";
  if (const std::string why = Refusal(task, kind); !why.empty()) return "dropped: " + why;
  if (context.vdi == nullptr) return "dropped: no coordinator here";
  const st::VdiRequest request{plat::ToUtf8(task.uid),    plat::ToUtf8(task.pool), plat::ToUtf8(task.taskKind),
                               plat::ToUtf8(task.taskId), task.progress,          task.result};
  st::VdiDecision decision;
  const int64_t now = st::VdiCoordinator::NowMs();
  const bool ok = kind == Kind::kStart     ? context.vdi->Start(request, now, &decision)
                  : kind == Kind::kRunning ? context.vdi->Running(request, now, &decision)
                                           : context.vdi->Complete(request, now, &decision);
  if (!ok) return "dropped: the database failed";
  tagCln_VdiAnswer reply;
  reply.decision = decision.decision;
  reply.retryAfter = decision.retryAfter;
  reply.position = decision.position;
  reply.Serialize(answer.Fields());
  return "uid=" + request.uid + " pool=" + request.pool + " task=" + request.taskId + ": " +
         Describe(decision.decision, decision);
}

std::string OnStart(Context& c, CMsgSerializer& m, Reply2& a) { return OnVdi(c, m, a, Kind::kStart); }
std::string OnRunning(Context& c, CMsgSerializer& m, Reply2& a) { return OnVdi(c, m, a, Kind::kRunning); }
std::string OnComplete(Context& c, CMsgSerializer& m, Reply2& a) { return OnVdi(c, m, a, Kind::kComplete); }

constexpr Command2 kCommands[] = {
    {vdi::kCommands[0], kCommandHandlerPipe, OnStart, true},
    {vdi::kCommands[1], kCommandHandlerPipe, OnRunning, true},
    {vdi::kCommands[2], kCommandHandlerPipe, OnComplete, true},
};

}  // namespace

const Command2* FindVdiCommand(std::u16string_view name) {
  for (const Command2& command : kCommands) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

}  // namespace cmd
