// Who may use the pipes on POSIX. A peer is the same user as this process,
// root, or a member of the pipe group (VGCR_PIPE_GROUP: a group name or
// number) when one is configured, as it is where the web server and the
// command-handler service run as different users. The socket files and the
// pipe folder carry that group and no access for others, so the file system
// keeps strangers out first; the peer check (SO_PEERCRED) is the second
// lock, and the only one for a socket reached another way.
#include <grp.h>
#include <pwd.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "posix_util.h"

namespace plat::posix {
namespace {

gid_t ResolveGroup(const char* text, bool* found) {
  *found = false;
  if (text == nullptr || *text == '\0') return 0;
  char* end = nullptr;
  const unsigned long number = std::strtoul(text, &end, 10);
  if (end != text && *end == '\0') {
    *found = true;
    return static_cast<gid_t>(number);
  }
  std::vector<char> buffer(16384);
  group entry{};
  group* result = nullptr;
  if (::getgrnam_r(text, &entry, buffer.data(), buffer.size(), &result) == 0 && result != nullptr) {
    *found = true;
    return result->gr_gid;
  }
  Diagnose("pipe group %s: no such group; only this user and root may use the pipes", text);
  return 0;
}

// Whether the user belongs to the group, its primary group or a
// supplementary one; remembered, since a peer connects again and again.
bool UserInGroup(uid_t uid, gid_t primary, gid_t group) {
  if (primary == group) return true;
  static std::mutex mutex;
  static auto* known = new std::map<uid_t, bool>();
  std::lock_guard lock(mutex);
  if (auto it = known->find(uid); it != known->end()) return it->second;
  bool member = false;
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* user = nullptr;
  if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &user) == 0 && user != nullptr) {
    int count = 64;
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    if (::getgrouplist(user->pw_name, user->pw_gid, groups.data(), &count) < 0) {
      groups.resize(static_cast<std::size_t>(count));
      ::getgrouplist(user->pw_name, user->pw_gid, groups.data(), &count);
    }
    for (int i = 0; i < count && i < static_cast<int>(groups.size()); ++i) member |= groups[static_cast<std::size_t>(i)] == group;
  }
  (*known)[uid] = member;
  return member;
}

}  // namespace

bool PipeGroup(gid_t* group) {
  static bool found = false;
  static const gid_t configured = ResolveGroup(std::getenv("VGCR_PIPE_GROUP"), &found);
  if (found) *group = configured;
  return found;
}

bool PeerMayConnect(uid_t uid, gid_t gid) {
  if (uid == ::geteuid() || uid == 0) return true;
  gid_t group = 0;
  return PipeGroup(&group) && UserInGroup(uid, gid, group);
}

}  // namespace plat::posix
