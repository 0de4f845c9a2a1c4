// The VDI round trips: a desktop's task start request, running and
// complete notifications, answered by the pool's coordinator.
#pragma once

#include <string_view>

#include "cmd_Version2.h"

namespace cmd {

// The VDI command of that name; null for any other command.
const Command2* FindVdiCommand(std::u16string_view name);

}  // namespace cmd
