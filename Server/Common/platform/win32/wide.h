// char16_t and the Win32 wchar_t are the same 16-bit units on Windows.
#pragma once

static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wchar_t is UTF-16");

namespace plat::win32 {

inline const wchar_t* W(const char16_t* text) { return reinterpret_cast<const wchar_t*>(text); }
inline wchar_t* W(char16_t* text) { return reinterpret_cast<wchar_t*>(text); }
inline const char16_t* U(const wchar_t* text) { return reinterpret_cast<const char16_t*>(text); }

}  // namespace plat::win32
