// The HTTP side of isapi-host: a libmicrohttpd daemon that hands each
// request for the extension's path to the extension and sends its answer.
#pragma once

#include <atomic>
#include <string>

#include "host_Options.h"
#include "isapi/exchange.h"

struct MHD_Daemon;

class HostServer {
 public:
  HostServer(const HostOptions& options, isapi::Module& module) : options_(options), module_(module) {}
  ~HostServer();
  bool Start(std::string* message);
  // Stops accepting and waits (up to graceMs) for the requests in flight.
  void Quiesce(uint32_t graceMs);
  // Waits (up to ms) until no request is in flight: answers the workers
  // have finished still have to be sent.
  void WaitIdle(uint32_t ms);
  // Closes every connection. Only once no worker of the extension holds a
  // request any more (after TerminateExtension): a suspended connection's
  // control block is the worker's until it says it is done.
  void Stop();
  int InFlight() const { return inFlight_.load(); }

  // For the daemon's callbacks.
  const HostOptions& options() const { return options_; }
  isapi::Module& module() { return module_; }
  std::atomic<int>& inFlight() { return inFlight_; }

 private:
  HostOptions options_;
  isapi::Module& module_;
  MHD_Daemon* daemon_ = nullptr;
  std::atomic<int> inFlight_{0};
};
