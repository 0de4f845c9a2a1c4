// Where a connection's thread and the worker running the extension meet for
// one request: the body streamed from the one to the other through a window
// of bounded size, and the extension's "done". The connection side runs in
// libmicrohttpd's access handler; when it has nothing to do it parks
// (suspends) the connection, and the worker wakes it (resumes) as soon as it
// has: it finished, it wants body bytes, or it made room in the window.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

struct MHD_Connection;

class Handoff {
 public:
  // What the connection side is doing.
  enum class Phase { kHeaders, kBody, kEnded };

  Handoff(MHD_Connection* connection, std::size_t window) : connection_(connection), window_(window) {}
  Handoff(const Handoff&) = delete;
  Handoff& operator=(const Handoff&) = delete;

  // --- the connection side (libmicrohttpd's thread, in the access handler)
  Phase phase();
  // The worker asked for the body: reading it starts.
  void StartBody();
  // Takes what fits into the window; returns how many bytes it took.
  std::size_t Offer(const char* data, std::size_t size);
  // The whole body has been received.
  void EndBody();
  bool Done();
  bool Wanted();
  // Suspends the connection unless the worker already has something for it.
  // True when it parked: the access handler then returns and is called
  // again once the worker resumes the connection.
  bool Park();

  // The connection's own thread is inside the extension's entry point (IIS
  // mode) from Enter to Leave: a read there could never be served.
  void Enter();
  void Leave();

  // --- the worker
  // Blocks until body bytes, the end, or the connection is gone. False for
  // a connection gone, and for a read from the connection's own thread
  // (kErrorNotSupported: an IIS-mode extension reads a streamed body from
  // its own threads, after HttpExtensionProc has returned pending); 0 bytes
  // at the end of the body.
  bool Read(void* buffer, uint32_t* size);
  void Finish();

  // --- either: the connection is gone; reads fail from now on.
  void Abandon();

 private:
  bool ReadyLocked() const;
  void WakeLocked();

  MHD_Connection* const connection_;
  const std::size_t window_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  Phase phase_ = Phase::kHeaders;
  std::string buffered_;  // received, not read yet
  bool wanted_ = false;   // the worker waits for bytes
  bool done_ = false;
  bool abandoned_ = false;
  bool parked_ = false;
  std::thread::id entered_;
};
