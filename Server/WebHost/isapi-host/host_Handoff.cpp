#include "host_Handoff.h"

#include <microhttpd.h>

#include "platform/errors.h"

#include <algorithm>
#include <cstring>

Handoff::Phase Handoff::phase() {
  std::lock_guard lock(mutex_);
  return phase_;
}

void Handoff::StartBody() {
  std::lock_guard lock(mutex_);
  if (phase_ == Phase::kHeaders) phase_ = Phase::kBody;
}

std::size_t Handoff::Offer(const char* data, std::size_t size) {
  std::lock_guard lock(mutex_);
  if (done_ || abandoned_) return size;  // nobody reads it any more: dropped
  const std::size_t room = buffered_.size() < window_ ? window_ - buffered_.size() : 0;
  const std::size_t taken = std::min(room, size);
  buffered_.append(data, taken);
  if (taken) arrived_.notify_all();
  return taken;
}

void Handoff::EndBody() {
  std::lock_guard lock(mutex_);
  phase_ = Phase::kEnded;
  arrived_.notify_all();
}

bool Handoff::Done() {
  std::lock_guard lock(mutex_);
  return done_;
}

bool Handoff::Wanted() {
  std::lock_guard lock(mutex_);
  return wanted_;
}

// The connection side has work when the extension is done, when the worker
// waits for a body not yet being read, or when the window has room.
bool Handoff::ReadyLocked() const {
  if (done_) return true;
  switch (phase_) {
    case Phase::kHeaders: return wanted_;
    case Phase::kBody: return buffered_.size() < window_;
    case Phase::kEnded: return false;
  }
  return false;
}

bool Handoff::Park() {
  std::lock_guard lock(mutex_);
  if (ReadyLocked()) return false;
  parked_ = true;
  MHD_suspend_connection(connection_);
  return true;
}

void Handoff::WakeLocked() {
  if (!parked_ || !ReadyLocked()) return;
  parked_ = false;
  MHD_resume_connection(connection_);
}

void Handoff::Enter() {
  std::lock_guard lock(mutex_);
  entered_ = std::this_thread::get_id();
}

void Handoff::Leave() {
  std::lock_guard lock(mutex_);
  entered_ = std::thread::id();
}

bool Handoff::Read(void* buffer, uint32_t* size) {
  std::unique_lock lock(mutex_);
  if (entered_ == std::this_thread::get_id() && buffered_.empty() && phase_ != Phase::kEnded) {
    *size = 0;
    plat::SetLastError(plat::kErrorNotSupported);
    return false;
  }
  for (;;) {
    if (abandoned_) {
      *size = 0;
      plat::SetLastError(plat::kErrorBrokenPipe);
      return false;
    }
    if (!buffered_.empty() || phase_ == Phase::kEnded) break;
    wanted_ = true;
    WakeLocked();
    arrived_.wait(lock);
  }
  wanted_ = false;
  const std::size_t n = std::min<std::size_t>(buffered_.size(), *size);
  std::memcpy(buffer, buffered_.data(), n);
  buffered_.erase(0, n);
  *size = static_cast<uint32_t>(n);
  WakeLocked();
  return true;
}

void Handoff::Finish() {
  std::lock_guard lock(mutex_);
  done_ = true;
  std::string().swap(buffered_);
  WakeLocked();
}

void Handoff::Abandon() {
  std::lock_guard lock(mutex_);
  abandoned_ = true;
  arrived_.notify_all();
}
