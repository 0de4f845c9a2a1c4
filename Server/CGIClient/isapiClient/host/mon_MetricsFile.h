// The metrics written to a file: where no host reads the extension's
// counters (IIS, an Apache adapter), $VGCR_METRICS_FILE names a file that
// gets the Prometheus text every 15 seconds, written beside it and put in
// its place in one step, so that a collector reading it (a textfile
// collector) never sees half of it.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace mon {

class MetricsFile {
 public:
  static constexpr unsigned kPeriodSeconds = 15;

  ~MetricsFile() { Stop(); }
  // Starts writing render() to `path` now and every `periodSeconds`;
  // nothing when path is empty.
  void Start(const std::u16string& path, std::function<std::string()> render,
             unsigned periodSeconds = kPeriodSeconds);
  // Writes once more, so that the file holds the final counts, and stops.
  void Stop();

  // One write; false when the file could not be written or replaced.
  static bool Write(const std::u16string& path, const std::string& text);

 private:
  void Run(unsigned periodSeconds);

  std::u16string path_;
  std::function<std::string()> render_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace mon
