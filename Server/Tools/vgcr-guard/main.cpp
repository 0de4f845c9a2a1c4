// vgcr-guard: publishes or clears the server's memory and disk threshold
// records, as the server's monitoring service does, so that the extension's
// guards can be seen at work.
//
//   vgcr-guard memory OVER [COUNT [SECONDS]]   over: 1 or 0 (count 200, 2 s)
//   vgcr-guard disk STATUS [SECONDS [COUNT]]   (5 s, count 200); STATUS a
//                                               number or normal (1700),
//                                               warning (1701), full (1702)
//   vgcr-guard clear                           removes both records
//   vgcr-guard show                            prints both records
//
// On Windows a record lives only while a handle to it is open: the tool then
// keeps running until it is stopped (Ctrl-C). On POSIX the record stays
// until it is cleared.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/errors.h"
#include "platform/server_records.h"
#include "platform/shared_memory.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace {

constexpr const char16_t* kMemory = plat::kMemThresholdRecord;
constexpr const char16_t* kDisk = plat::kDiskThresholdRecord;

int Usage() {
  std::fprintf(stderr,
               "usage: vgcr-guard memory OVER [COUNT [SECONDS]]\n"
               "       vgcr-guard disk STATUS [SECONDS [COUNT]]\n"
               "         STATUS: normal (1700), warning (1701: uploads accepted, the client\n"
               "         told), full (1702: uploads refused) or a number (any other: full)\n"
               "       vgcr-guard clear | show\n"
               "POSIX: the records are /dev/shm files of mode 0644 owned by whoever publishes\n"
               "them; the extension trusts one only when root, its own user or\n"
               "$VGCR_GUARD_OWNER (a uid) owns it and nobody else may write it. A record\n"
               "another user owns is refused here too: remove it (as root) first.\n");
  return 2;
}

bool Word(const char* text, uint32_t* out) {
  char* end = nullptr;
  unsigned long value = std::strtoul(text, &end, 10);
  if (end == text || *end != '\0' || value > 0xFFFFFFFFul) return false;
  *out = static_cast<uint32_t>(value);
  return true;
}

// The status may be named.
bool DiskWord(const char* text, bool status, uint32_t* out) {
  static const struct {
    const char* name;
    uint32_t value;
  } kNames[] = {{"normal", plat::kDiskNormal}, {"warning", plat::kDiskWarning}, {"full", plat::kDiskFull}};
  for (const auto& named : kNames) {
    if (status && std::strcmp(text, named.name) == 0) return *out = named.value, true;
  }
  return Word(text, out);
}

int Publish(const char16_t* name, const uint32_t words[3]) {
  plat::SharedMemory record;
  void* view = nullptr;
  if (!record.Create(name, 12) || (view = record.Map(12, plat::MapAccess::kReadWrite)) == nullptr) {
    std::fprintf(stderr, "vgcr-guard: cannot publish the record (error %u%s)\n", plat::LastError(),
                 plat::LastError() == plat::kErrorAccessDenied ? ": it belongs to another user" : "");
    return 1;
  }
  std::memcpy(view, words, 12);
  std::printf("published: %u %u %u\n", words[0], words[1], words[2]);
#if defined(_WIN32)
  std::printf("holding the record; stop with Ctrl-C\n");
  std::fflush(stdout);
  ::Sleep(INFINITE);
#endif
  return 0;
}

void Show(const char* label, const char16_t* name, const char* fields) {
  plat::SharedMemory record;
  const void* view = nullptr;
  if (!record.Open(name, plat::MapAccess::kRead) || (view = record.Map(12, plat::MapAccess::kRead)) == nullptr) {
    std::printf("%s: not published\n", label);
    return;
  }
  uint32_t words[3];
  std::memcpy(words, view, 12);
  std::printf("%s: %s = %u %u %u\n", label, fields, words[0], words[1], words[2]);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return Usage();
  const std::string command = argv[1];
  if (command == "memory" && argc >= 3 && argc <= 5) {
    uint32_t words[3] = {0, 200, 2};  // over, check count, seconds
    for (int i = 2; i < argc; ++i) {
      if (!Word(argv[i], &words[i - 2])) return Usage();
    }
    return Publish(kMemory, words);
  }
  if (command == "disk" && argc >= 3 && argc <= 5) {
    uint32_t words[3] = {plat::kDiskNormal, 5, 200};  // status, seconds, check count
    for (int i = 2; i < argc; ++i) {
      if (!DiskWord(argv[i], i == 2, &words[i - 2])) return Usage();
    }
    return Publish(kDisk, words);
  }
  if (command == "clear" && argc == 2) {
    plat::SharedMemory::Remove(kMemory);
    plat::SharedMemory::Remove(kDisk);
    std::printf("cleared\n");
    return 0;
  }
  if (command == "show" && argc == 2) {
    Show("memory", kMemory, "over, check count, seconds");
    Show("disk", kDisk, "status, seconds, check count");
    return 0;
  }
  return Usage();
}
