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
  // Stops accepting, waits (up to graceMs) for the requests in flight, stops.
  void Stop(uint32_t graceMs);
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
