// Whether the extension can serve: one round trip to the command-handler
// service, the read of the product information that needs no client.
#pragma once

#include <string>

namespace mon {

// True when the service answered; *reason says what happened either way.
// The round trip is bounded by the channel's reply time-out; a caller that
// needs a shorter answer waits on it from another thread.
bool CheckService(std::string* reason);

}  // namespace mon
