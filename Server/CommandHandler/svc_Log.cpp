#include "svc_Log.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <mutex>

namespace svc {
namespace {

std::atomic<bool> quiet{false};
std::mutex lock;

void Write(std::FILE* stream, const std::string& line) {
  std::lock_guard guard(lock);
  std::fwrite(line.data(), 1, line.size(), stream);
  std::fflush(stream);
}

}  // namespace

void SetQuiet(bool value) { quiet = value; }

void Log(std::string_view pipe, std::string_view command, std::string_view what) {
  if (quiet) return;
  Write(stdout, TimeText(false) + " [" + std::string(pipe) + "] " + std::string(command) + ": " + std::string(what) + "\n");
}

void Note(std::string_view what) { Write(stderr, TimeText(false) + " vgcr-cmdhandler: " + std::string(what) + "\n"); }

std::string TimeText(bool utc) {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm parts{};
  if (utc) {
    gmtime_r(&seconds, &parts);
  } else {
    localtime_r(&seconds, &parts);
  }
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", parts.tm_year + 1900, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, static_cast<int>(millis));
  return text;
}

}  // namespace svc
