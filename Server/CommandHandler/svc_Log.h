// The service's own log: one line per command on standard output, with the
// local time, the pipe it came in on, the command and what was done.
#pragma once

#include <string>
#include <string_view>

namespace svc {

void SetQuiet(bool quiet);
void Log(std::string_view pipe, std::string_view command, std::string_view what);
// Start-up, shut-down and failures of the service itself, on standard error.
void Note(std::string_view what);
// The current time as "YYYY-MM-DD hh:mm:ss.sss": local time for the log
// lines, UTC for what the database keeps.
std::string TimeText(bool utc);

}  // namespace svc
