// isapi-host's command line.
#pragma once

#include <cstdint>
#include <string>

struct HostOptions {
  std::string extension;
  std::string address = "127.0.0.1";
  uint16_t port = 8080;
  bool adapter = false;
  uint64_t maxBody = 30000000;        // as IIS's default request limit
  uint32_t maxRequestLine = 65536;    // a start registration at every limit is ~57 KiB
  uint32_t timeoutSeconds = 30;       // an idle or slow connection is dropped
  uint32_t threads = 4;               // HTTP threads
  uint32_t adapterWorkers = 64;       // adapter mode: threads that call the extension
  // A request's line, headers and body must be in within this many seconds,
  // plus a second for every minBodyRate bytes of body (host_Connections.h).
  uint32_t deadlineSeconds = 20;
  uint32_t minBodyRate = 8192;
  // poll(2) instead of epoll: level-triggered, so a client's end of input
  // that arrives with its last bytes is seen at once (the fuzz target's
  // clients half-close after every input); epoll scales better.
  bool poll = false;
  bool libraryLog = true;  // libmicrohttpd's own messages on standard error
  // Connections held at once, and from one client address. Agents behind
  // one NAT or proxy share an address, so the per-address limit is wide and
  // the total carries the load (docs/host.md).
  uint32_t maxConnections = 10000;
  uint32_t maxPerAddress = 512;
  // On SIGTERM: how long requests in flight may finish before the extension
  // is unloaded (which waits for its workers in any case).
  uint32_t stopGraceSeconds = 30;
  std::string path = "/vigilcrest/cgi/isapiClient.dll";
  // The metrics and health listener; off while the address is empty.
  std::string metricsAddress;
  uint16_t metricsPort = 0;
};

// Parses argv; false with a message for the user.
bool ParseOptions(int argc, char** argv, HostOptions* options, std::string* message);
std::string Usage();
