// A web server in the test's own process: it fills an extension control
// block and calls the extension's entry points, in IIS mode (the call
// returns pending and the worker ends the request) or in adapter mode (the
// call returns when the request is done).
#pragma once

#include <string>

#include "isapi/exchange.h"

struct EntryPoints {
  PFN_GETEXTENSIONVERSION getExtensionVersion;
  PFN_HTTPEXTENSIONPROC httpExtensionProc;
  PFN_TERMINATEEXTENSION terminateExtension;
};

// The entry points linked into the test program.
EntryPoints LinkedEntryPoints();

class InProcessHost {
 public:
  explicit InProcessHost(EntryPoints entry) : entry_(entry) {}

  // Sends one request; returnedStatus receives HttpExtensionProc's result.
  isapi::Response Send(isapi::Request request, DWORD* returnedStatus = nullptr);

  static isapi::Request Get(const std::string& query, bool adapter = false);
  static isapi::Request Post(const std::string& body, bool adapter = false);

 private:
  EntryPoints entry_;
};
