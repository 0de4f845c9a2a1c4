// Manual-reset events as eventfd descriptors: readable while signalled, so
// that a wait can join them with pipe sockets and timers in one poll().
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "platform/errors.h"
#include "platform/event.h"

namespace plat {

struct Event::Core {
  int fd = -1;
  std::mutex mutex;
  bool signalled = false;
  std::u16string name;
  ~Core();
};

namespace {

std::mutex& RegistryMutex() {
  static std::mutex m;
  return m;
}
std::map<std::u16string, std::weak_ptr<Event::Core>>& Registry() {
  static auto* r = new std::map<std::u16string, std::weak_ptr<Event::Core>>();
  return *r;
}

}  // namespace

Event::Core::~Core() {
  if (fd >= 0) ::close(fd);
  if (!name.empty()) {
    std::lock_guard lock(RegistryMutex());
    auto it = Registry().find(name);
    if (it != Registry().end() && it->second.expired()) Registry().erase(it);
  }
}

Event::Event() = default;
Event::~Event() { Close(); }
Event::Event(Event&&) noexcept = default;
Event& Event::operator=(Event&&) noexcept = default;

bool Event::Create(const char16_t* name, bool initiallySignalled) {
  Close();
  std::u16string key = name ? std::u16string(name) : std::u16string();
  std::unique_lock lock(RegistryMutex(), std::defer_lock);
  if (!key.empty()) {
    lock.lock();
    auto it = Registry().find(key);
    if (it != Registry().end()) {
      if (auto existing = it->second.lock()) {
        core_ = std::move(existing);
        SetLastError(kErrorAlreadyExists);
        return true;
      }
    }
  }
  auto core = std::make_shared<Core>();
  core->fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (core->fd < 0) {
    SetLastError(ErrorFromErrno(errno));
    return false;
  }
  if (!key.empty()) {
    core->name = key;
    Registry()[key] = core;
  }
  core_ = std::move(core);
  if (initiallySignalled) Set();
  SetLastError(kErrorSuccess);
  return true;
}

bool Event::Open(const char16_t* name) {
  Close();
  if (!name || !*name) {
    SetLastError(kErrorInvalidParameter);
    return false;
  }
  std::lock_guard lock(RegistryMutex());
  auto it = Registry().find(name);
  if (it == Registry().end() || !(core_ = it->second.lock())) {
    SetLastError(kErrorFileNotFound);
    return false;
  }
  return true;
}

bool Event::Set() {
  if (!core_) {
    SetLastError(kErrorInvalidHandle);
    return false;
  }
  std::lock_guard lock(core_->mutex);
  if (!core_->signalled) {
    uint64_t one = 1;
    if (::write(core_->fd, &one, sizeof one) != sizeof one) {
      SetLastError(ErrorFromErrno(errno));
      return false;
    }
    core_->signalled = true;
  }
  return true;
}

bool Event::Reset() {
  if (!core_) {
    SetLastError(kErrorInvalidHandle);
    return false;
  }
  std::lock_guard lock(core_->mutex);
  if (core_->signalled) {
    uint64_t value = 0;
    if (::read(core_->fd, &value, sizeof value) != sizeof value) {
      SetLastError(ErrorFromErrno(errno));
      return false;
    }
    core_->signalled = false;
  }
  return true;
}

uint32_t Event::Wait(uint32_t timeoutMs) const {
  if (!core_) {
    SetLastError(kErrorInvalidHandle);
    return kWaitFailed;
  }
  return WaitForOne(Handle(), timeoutMs);
}

void Event::Close() { core_.reset(); }
bool Event::IsOpen() const { return core_ != nullptr; }
WaitHandle Event::Handle() const { return WaitHandle{core_ ? core_->fd : kNoHandle}; }

}  // namespace plat
