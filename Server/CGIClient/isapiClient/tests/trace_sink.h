// Collects trace lines for assertions.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "support/dbg_Trace.h"

struct CapturedTrace {
  int level;
  std::u16string source;
  int line;
  std::u16string message;
  std::u16string decorated;
  bool quiet;
};

// Installs itself as the trace sink for its lifetime.
class TraceCapture {
 public:
  TraceCapture();
  ~TraceCapture();
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  // The lines of the ordinary trace forms.
  std::vector<CapturedTrace> Lines() const;
  // Those and the quiet lines (which only a trace library would see).
  std::vector<CapturedTrace> AllLines() const;
  // Messages (without prefix) in the order traced, as UTF-8 for readable failures.
  std::vector<std::string> Messages() const;
  // How many lines contain text.
  int Count(const std::string& text) const;
  void Clear();

 private:
  static void Receive(void* context, const dbg::TraceRecord& record);
  mutable std::mutex mutex_;
  std::vector<CapturedTrace> lines_;
};
