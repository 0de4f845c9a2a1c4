// The service's own log: one line per command on standard output, with the
// local time, the pipe it came in on, the command and what was done.
#pragma once

#include <string>
#include <string_view>

namespace svc {

void SetQuiet(bool quiet);
// The command's name and what was done carry texts the client chose (its
// computer name, user, domain, ...); Log and Note escape them (LogText), so
// that every line written is one line of the service's.
void Log(std::string_view pipe, std::string_view command, std::string_view what);
// Start-up, shut-down and failures of the service itself, on standard error.
void Note(std::string_view what);
// The current time as "YYYY-MM-DD hh:mm:ss.sss": local time for the log
// lines, UTC for what the database keeps.
std::string TimeText(bool utc);

// text as it goes into a log line: a backslash becomes "\\", a line feed
// "\n", a carriage return "\r", a tab "\t", and every other byte of a
// control character (C0, DEL, C1), of a line or paragraph separator
// (U+2028, U+2029) or of something that is not UTF-8 becomes "\xhh". The
// rest, other UTF-8 text included, is kept as it is, so the service's own
// words read unchanged and a reader can undo the escaping byte for byte.
std::string LogText(std::string_view text);

}  // namespace svc
