#include "cmd_Logs.h"

#include <array>
#include <utility>

#include "channel/channel_Settings.h"
#include "channel/rec_Logs.h"
#include "cmd_Text.h"
#include "platform/text.h"

namespace cmd {
namespace {

// The record as the table keeps it.
st::LogRow ToRow(const logrec::tagCln_Log& record, std::string uid) {
  const logrec::Layout& layout = record.layout();
  st::LogRow row;
  row.layout = &layout;
  row.received = st::UtcNow();
  row.uid = std::move(uid);
  row.release = AnsiToUtf8(record.Release());
  row.recordType = record.recordType;
  row.texts.resize(layout.keys.size());
  row.numbers.resize(layout.keys.size());
  for (std::size_t i = 0; i < layout.keys.size(); ++i) {
    if (layout.keys[i].value == logrec::Value::kText) {
      row.texts[i] = plat::ToUtf8(record.TextAt(i));
    } else {
      row.numbers[i] = record.NumberAt(i);
    }
  }
  return row;
}

std::string OnLog(Context& context, CMsgSerializer& message, Reply2&) {
  const logrec::Layout* layout = logrec::FindLayout(message.CommandName());
  if (layout == nullptr) return "dropped: not a log command";
  logrec::tagCln_Log record(*layout);
  if (!record.Deserialize(message)) return "dropped: malformed record";
  std::string uid = AnsiToUtf8(record.Uid());
  if (uid.empty()) return "dropped: no uid";
  if (!layout->Carries(record.recordType)) {
    return "dropped: uid=" + uid + " record type " + std::to_string(record.recordType) + " is not a " +
           layout->table + " record";
  }
  const std::string line = "uid=" + uid + " " + layout->table + " queued";
  if (!context.logs.Add(ToRow(record, std::move(uid)))) return "dropped: the service is stopping";
  return line;
}

constexpr const char16_t* PipeOf(logrec::Pipe pipe) {
  return pipe == logrec::Pipe::kThreatLog ? kThreatLogPipe : kCommandHandlerPipe;
}

template <std::size_t... I>
constexpr std::array<Command2, sizeof...(I)> MakeLogCommands(std::index_sequence<I...>) {
  return {{{logrec::kLayouts[I]->command, PipeOf(logrec::kLayouts[I]->pipe), OnLog}...}};
}

constexpr auto kLogCommands = MakeLogCommands(std::make_index_sequence<std::size(logrec::kLayouts)>());

}  // namespace

const Command2* FindLogCommand(std::u16string_view name) {
  for (const Command2& command : kLogCommands) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

}  // namespace cmd
