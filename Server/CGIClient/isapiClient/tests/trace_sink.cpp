#include "trace_sink.h"

#include "platform/text.h"

TraceCapture::TraceCapture() { dbg::SetTestSink(&TraceCapture::Receive, this); }
TraceCapture::~TraceCapture() { dbg::SetTestSink(nullptr, nullptr); }

void TraceCapture::Receive(void* context, const dbg::TraceRecord& r) {
  auto* self = static_cast<TraceCapture*>(context);
  std::lock_guard lock(self->mutex_);
  self->lines_.push_back(CapturedTrace{r.level, r.source ? r.source : u"", r.line, r.message, r.decorated, r.quiet});
}

std::vector<CapturedTrace> TraceCapture::AllLines() const {
  std::lock_guard lock(mutex_);
  return lines_;
}

std::vector<CapturedTrace> TraceCapture::Lines() const {
  std::vector<CapturedTrace> out;
  for (auto& line : AllLines()) {
    if (!line.quiet) out.push_back(line);
  }
  return out;
}

std::vector<std::string> TraceCapture::Messages() const {
  std::vector<std::string> out;
  for (const auto& line : Lines()) out.push_back(plat::ToUtf8(line.message));
  return out;
}

int TraceCapture::Count(const std::string& text) const {
  int n = 0;
  for (const auto& message : Messages()) n += message.find(text) != std::string::npos;
  return n;
}

void TraceCapture::Clear() {
  std::lock_guard lock(mutex_);
  lines_.clear();
}
