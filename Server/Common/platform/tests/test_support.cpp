#include "test_support.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>

#if !defined(_WIN32)
#include <unistd.h>
#endif

#include "platform/process.h"
#include "platform/text.h"

namespace plat::testing {

std::u16string UniqueName(const char* prefix) {
  static std::atomic<int> counter{0};
  std::string name = std::string(prefix) + "_" + std::to_string(CurrentProcessId()) + "_" +
                     std::to_string(counter.fetch_add(1));
  return Widen(name);
}

#if !defined(_WIN32)
namespace {
// Each test program gets pipe and cache folders of its own, so programs
// that ctest runs side by side never meet on a pipe name.
struct PrivateFolders {
  PrivateFolders() {
    if (std::getenv("VGCR_PIPE_DIR")) return;
    char dir[] = "/tmp/vgcr-test-XXXXXX";
    if (::mkdtemp(dir)) {
      root = dir;
      ::setenv("VGCR_PIPE_DIR", (root + "/pipe").c_str(), 1);
    }
  }
  ~PrivateFolders() {
    if (root.empty()) return;
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
  }
  std::string root;
} g_privateFolders;
}  // namespace
#endif

}  // namespace plat::testing
