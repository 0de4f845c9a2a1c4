// The log commands: one per log layout, each on its layout's pipe, one
// handler for all of them.
#pragma once

#include <string_view>

#include "cmd_Version2.h"

namespace cmd {

// The log command of that name; null for any other command.
const Command2* FindLogCommand(std::u16string_view name);

}  // namespace cmd
