// Code-page conversion with a checked destination: a destination too small
// for the whole text (terminator included) gets nothing, never a part.
#pragma once

#include <cstdint>
#include <string>

namespace MBWC {

// Narrow (code page) to UTF-16. Returns the characters written, terminator
// included, or 0 after a trace line when the destination is too small.
int MBToWC(const char* src, char16_t* dst, int dstLength, uint32_t codePage, uint32_t flags);

// UTF-16 to narrow, the same way; no default character.
int WCToMB(const char16_t* src, char* dst, int dstLength, uint32_t codePage, uint32_t flags);

// UTF-16 to a narrow string sized to fit. False (and out untouched) when the
// text cannot be converted.
bool WCToMBString(const char16_t* src, std::string* out, uint32_t codePage = 0, uint32_t flags = 0);

}  // namespace MBWC
