// Helpers shared by the POSIX implementation files.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace plat::posix {

// printf into a stack buffer and hand the text to the diagnostic sink.
void Diagnose(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A UTF-16 path or name as UTF-8 for a system call.
std::string NativePath(const std::u16string& path);

// The pipe group (VGCR_PIPE_GROUP), when one is configured.
bool PipeGroup(gid_t* group);
// Whether a peer with these credentials may use a pipe of this process:
// this user, root, or a member of the pipe group.
bool PeerMayConnect(uid_t uid, gid_t gid);

}  // namespace plat::posix
