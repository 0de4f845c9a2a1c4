// The version-1 text commands: settings readers answer a text from the
// database; setters store what they carry and get no answer.
#pragma once

#include <string>
#include <vector>

#include "cmd_Context.h"

namespace cmd {

struct Command1;

// The command with this name, or null.
const Command1* FindCommand1(std::u16string_view name);
// How many tab-separated fields the command's text has, its name included;
// the last one keeps any further tabs.
std::size_t FieldCount(const Command1& command);
// Runs the command on its fields (the name first). A reader's answer is
// sent to the pipe its first argument names. Returns what the log line says.
std::string RunCommand1(Context& context, const Command1& command, const std::vector<std::u16string>& fields);

}  // namespace cmd
