#include "platform/diagnostics.h"

#include <atomic>
#include <cstdio>

#include "platform/text.h"

namespace plat {
namespace {
std::atomic<DiagnosticSink> g_sink{nullptr};
}

void SetDiagnosticSink(DiagnosticSink sink) { g_sink.store(sink); }

void ReportDiagnostic(const char16_t* text) {
  if (DiagnosticSink sink = g_sink.load()) {
    sink(text);
    return;
  }
  char line[1024];
  ToUtf8(text ? std::u16string_view(text) : std::u16string_view(), line, sizeof line);
  std::fprintf(stderr, "%s\n", line);
}

}  // namespace plat
