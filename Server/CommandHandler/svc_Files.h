// The service's files on disk: its data folder, the modes of what it keeps
// there, and the lock that lets one service at a time serve a pipe folder.
#pragma once

#include <string>

namespace svc {

// Creates the data folder (and its parents) when missing and makes it 0700,
// or 0750 with the pipe group when one is configured: every client's uid,
// the agents' only credential, is in it. A folder that is a link or that
// another user owns is refused.
bool PrepareDataFolder(const std::string& folder, std::string* error);

// Makes an existing file of ours `mode` (a database, its journal, the key);
// a file that is missing is fine, a link or another user's file is refused.
bool KeepPrivate(const std::string& path, unsigned mode, std::string* error);

// An advisory lock on "<pipe folder>/vgcr-cmdhandler.lock", held for the
// life of the service: a second service on the same pipe folder is told who
// holds it and does not touch the first one's pipes.
class InstanceLock {
 public:
  InstanceLock() = default;
  ~InstanceLock();
  InstanceLock(const InstanceLock&) = delete;
  InstanceLock& operator=(const InstanceLock&) = delete;
  bool Acquire(std::string* error);
  void Release();

 private:
  int fd_ = -1;
};

}  // namespace svc
