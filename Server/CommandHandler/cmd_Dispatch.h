// One request off a service pipe: its form is told, its command run, a round
// trip answered, and one log line written. Nothing a client sends makes it
// throw or stop the service: bad input is logged and dropped.
#pragma once

#include <string>

#include "channel/pipe_Listener.h"
#include "cmd_Context.h"

namespace cmd {

void Dispatch(Context& context, const std::u16string& pipe, PipeRequest&& request);

}  // namespace cmd
