// Runs a fuzz target without a fuzzing engine: every seed, then a fixed
// number of deterministic mutations of them (bytes flipped, lengths made
// huge, inputs cut short or joined). The sanitizer build runs this in the
// test command; scripts/fuzz.sh runs the same target under libFuzzer.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "fuzz_seeds.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

// Spill files named by fuzzed messages may only ever be looked for in a
// folder of our own.
void UsePrivateFolders() {
  std::filesystem::path dir = std::filesystem::temp_directory_path() / ("vgcr-fuzz-" + std::to_string(std::random_device{}()));
  std::filesystem::create_directories(dir);
#if defined(_WIN32)
  _putenv_s("TMP", dir.string().c_str());
  _putenv_s("TEMP", dir.string().c_str());
#else
  ::setenv("VGCR_LOCAL_PATH", dir.c_str(), 1);
  ::setenv("XDG_CACHE_HOME", dir.c_str(), 1);
  ::setenv("TMPDIR", dir.c_str(), 1);
#endif
}

std::vector<uint8_t> Mutate(const std::vector<uint8_t>& seed, std::mt19937& random) {
  std::vector<uint8_t> input = seed;
  const int edits = 1 + static_cast<int>(random() % 4);
  for (int e = 0; e < edits; ++e) {
    switch (random() % 5) {
      case 0:  // flip a byte
        if (!input.empty()) input[random() % input.size()] ^= static_cast<uint8_t>(1u << (random() % 8));
        break;
      case 1:  // a huge or odd length word somewhere
        if (input.size() >= 4) {
          std::size_t at = random() % (input.size() - 3);
          static const uint32_t kLengths[] = {0, 1, 3, 16, 17, 0x7FFFFFFF, 0xFFFFFFFF, 0xFFFFFFFC};
          uint32_t value = kLengths[random() % 8];
          for (int i = 0; i < 4; ++i) input[at + static_cast<std::size_t>(i)] = static_cast<uint8_t>(value >> (8 * i));
        }
        break;
      case 2:  // cut short
        input.resize(input.empty() ? 0 : random() % input.size());
        break;
      case 3:  // set the file flag
        if (input.size() > 16) input[16] |= 0x02;
        break;
      default:  // append random bytes
        for (int i = 0, n = static_cast<int>(random() % 32); i < n; ++i) input.push_back(static_cast<uint8_t>(random()));
        break;
    }
  }
  return input;
}

}  // namespace

int main(int argc, char** argv) {
  UsePrivateFolders();
  const int iterations = argc > 1 ? std::atoi(argv[1]) : 20000;
  std::vector<std::vector<uint8_t>> seeds = FUZZ_SEEDS();
  for (const auto& seed : seeds) LLVMFuzzerTestOneInput(seed.data(), seed.size());
  std::mt19937 random(20261122);
  for (int i = 0; i < iterations; ++i) {
    std::vector<uint8_t> input = Mutate(seeds[static_cast<std::size_t>(i) % seeds.size()], random);
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  std::printf("%d passed, 0 failed\n", iterations + static_cast<int>(seeds.size()));
  return 0;
}
