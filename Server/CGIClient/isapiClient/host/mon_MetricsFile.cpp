#include "mon_MetricsFile.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "platform/temp_file.h"

namespace mon {

bool MetricsFile::Write(const std::u16string& path, const std::string& text) {
  const std::u16string temporary = path + u".tmp";
  {
    std::ofstream out(std::filesystem::path(temporary), std::ios::binary | std::ios::trunc);
    if (!out.write(text.data(), static_cast<std::streamsize>(text.size())) || !out.flush()) return false;
  }
  return plat::ReplaceFileWith(temporary, path);
}

void MetricsFile::Start(const std::u16string& path, std::function<std::string()> render, unsigned periodSeconds) {
  if (path.empty() || thread_.joinable()) return;
  path_ = path;
  render_ = std::move(render);
  stopping_ = false;
  try {
    thread_ = std::thread([this, periodSeconds] { Run(periodSeconds); });
  } catch (const std::system_error&) {
    // No file, then: the requests are served all the same.
  }
}

void MetricsFile::Run(unsigned periodSeconds) {
  for (;;) {
    Write(path_, render_());
    std::unique_lock lock(mutex_);
    if (wake_.wait_for(lock, std::chrono::seconds(periodSeconds), [this] { return stopping_; })) break;
  }
  Write(path_, render_());  // after the stop was asked: the final counts
}

void MetricsFile::Stop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) thread_.join();
}

}  // namespace mon
