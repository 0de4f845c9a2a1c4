// The operator's commands: change what the service answers (a client's
// settings section, the update order, alert messages) in the database a
// running service uses. Each change lands in one transaction, so the
// service and its clients see it whole at once.
#pragma once

#include "svc_Options.h"

namespace svc {

// Runs options.command; the exit status (0 done, 1 failed, 2 bad usage).
int RunAdmin(const Options& options);

}  // namespace svc
