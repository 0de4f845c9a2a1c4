#include <windows.h>

#include "platform/errors.h"
#include "platform/event.h"
#include "wide.h"

namespace plat {

using win32::W;

struct Event::Core {};

Event::Event() = default;
Event::~Event() { Close(); }
Event::Event(Event&& other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
Event& Event::operator=(Event&& other) noexcept {
  if (this != &other) {
    Close();
    handle_ = other.handle_;
    other.handle_ = nullptr;
  }
  return *this;
}

bool Event::Create(const char16_t* name, bool initiallySignalled) {
  Close();
  const wchar_t* wideName = name && *name ? W(name) : nullptr;
  handle_ = ::CreateEventW(nullptr, TRUE, initiallySignalled ? TRUE : FALSE, wideName);
  return handle_ != nullptr;
}

bool Event::Open(const char16_t* name) {
  Close();
  handle_ = ::OpenEventW(EVENT_MODIFY_STATE | SYNCHRONIZE, FALSE, W(name));
  return handle_ != nullptr;
}

bool Event::Set() { return ::SetEvent(handle_) != FALSE; }
bool Event::Reset() { return ::ResetEvent(handle_) != FALSE; }
uint32_t Event::Wait(uint32_t timeoutMs) const { return ::WaitForSingleObject(handle_, timeoutMs); }

void Event::Close() {
  if (handle_) ::CloseHandle(handle_);
  handle_ = nullptr;
}

bool Event::IsOpen() const { return handle_ != nullptr; }
WaitHandle Event::Handle() const { return WaitHandle{handle_}; }

}  // namespace plat
