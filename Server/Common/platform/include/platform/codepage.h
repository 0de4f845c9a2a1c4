// Code-page conversion (MultiByteToWideChar / WideCharToMultiByte).
//
// The arguments and results are those of the Win32 calls: a source length of
// -1 includes the terminator, a destination capacity of 0 asks for the
// length needed, and a destination that is too small fails with
// kErrorInsufficientBuffer.
//
// POSIX converts with iconv. Its "ANSI code page" (code page 0) is
// Windows-1252 unless $VGCR_CODEPAGE names another (65001 for UTF-8).
// Bytes that cannot be decoded become U+FFFD (UTF-8) or the C1 code point of
// the byte (Windows-1252's five unassigned bytes), and characters that a
// single-byte code page cannot hold become '?', as on Windows without its
// best-fit tables.
#pragma once

#include <cstdint>

namespace plat {

inline constexpr uint32_t kCpAcp = 0;
inline constexpr uint32_t kCpUtf8 = 65001;
inline constexpr uint32_t kMbErrInvalidChars = 0x8;
inline constexpr uint32_t kWcCompositeCheck = 0x200;
inline constexpr uint32_t kWcErrInvalidChars = 0x80;

int MultiByteToWide(uint32_t codePage, uint32_t flags, const char* src, int srcLength,
                    char16_t* dst, int dstCapacity);
int WideToMultiByte(uint32_t codePage, uint32_t flags, const char16_t* src, int srcLength,
                    char* dst, int dstCapacity);

// The code page that code page 0 stands for.
uint32_t AnsiCodePage();

}  // namespace plat
