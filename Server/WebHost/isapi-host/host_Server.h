// The HTTP side of isapi-host: a libmicrohttpd daemon that hands each
// request for the extension's path to the extension and sends its answer.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host_Connections.h"
#include "host_Handoff.h"
#include "host_Options.h"
#include "host_Workers.h"
#include "isapi/exchange.h"

struct MHD_Daemon;

// One request in the extension's hands: its control block and the handoff
// between the connection and the worker.
struct Flight {
  std::unique_ptr<isapi::Exchange> exchange;
  std::shared_ptr<Handoff> handoff;
  bool failed = false;  // the call returned HSE_STATUS_ERROR
};

class HostServer {
 public:
  HostServer(const HostOptions& options, isapi::Module& module)
      : options_(options),
        module_(module),
        connections_({options.maxConnections, options.maxPerAddress, options.deadlineSeconds, options.minBodyRate}) {}
  ~HostServer();
  bool Start(std::string* message);
  // Stops accepting and waits (up to graceMs) for the requests in flight;
  // then, in adapter mode, cancels the requests still queued for a worker
  // and waits for the extension calls under way.
  void Quiesce(uint32_t graceMs);
  // Waits (up to ms) until no request is in flight: answers the workers
  // have finished still have to be sent.
  void WaitIdle(uint32_t ms);
  // Closes every connection. Only once no worker of the extension holds a
  // request any more (after TerminateExtension): a suspended connection's
  // control block is the worker's until it says it is done. False, and
  // nothing closed, while a request is still held (an extension that never
  // finished it): the process's exit is then the only safe end.
  bool Stop();
  int InFlight() const { return inFlight_.load(); }
  // From Quiesce on: a request that still arrives is answered 503.
  bool stopping() const { return stopping_.load(); }
  // The port listened on (the one chosen when the options asked for 0).
  uint16_t port() const;

  // For the daemon's callbacks.
  const HostOptions& options() const { return options_; }
  isapi::Module& module() { return module_; }
  std::atomic<int>& inFlight() { return inFlight_; }
  ConnectionTable& connections() { return connections_; }
  Workers& workers() { return *workers_; }
  // Keeps a request whose client left until the extension is done with it.
  void Adopt(std::shared_ptr<Flight> flight);

 private:
  HostOptions options_;
  isapi::Module& module_;
  MHD_Daemon* daemon_ = nullptr;
  std::atomic<int> inFlight_{0};
  std::atomic<bool> stopping_{false};
  int listenSocket_ = -1;  // handed back by the quiesce
  ConnectionTable connections_;
  std::unique_ptr<Workers> workers_;  // adapter mode
  std::mutex orphansMutex_;
  std::vector<std::shared_ptr<Flight>> orphans_;
};
