// How the OS layer tells a person why something was refused (a pipe folder
// owned by someone else, say). The trace facility installs itself here at
// start-up; until then the text goes to standard error.
#pragma once

namespace plat {

using DiagnosticSink = void (*)(const char16_t* text);

void SetDiagnosticSink(DiagnosticSink sink);
void ReportDiagnostic(const char16_t* text);

// OutputDebugStringW on Windows; on POSIX standard error, and only when
// $VGCR_DEBUG_OUTPUT is set (a debugger's output window has no equivalent).
void OutputDebugText(const char16_t* text);

}  // namespace plat
