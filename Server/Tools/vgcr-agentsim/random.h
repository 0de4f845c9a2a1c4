// Random numbers for the simulator: SplitMix64, small and fast, so that a
// client's identity can be derived again from the seed and its index at any
// time instead of being held in memory for 100,000 clients.
#pragma once

#include <cmath>
#include <cstdint>

namespace agentsim {

inline uint64_t Mix64(uint64_t x) {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t Next() { return Mix64(state_++ * 0x2545F4914F6CDD1Dull + 0x632BE59BD9B4E019ull); }
  // Uniform in [0, 1).
  double Unit() { return static_cast<double>(Next() >> 11) * 0x1.0p-53; }
  // Uniform in [0, n); n > 0.
  uint32_t Below(uint32_t n) { return static_cast<uint32_t>(Unit() * n); }
  // Exponentially distributed with the given mean: the gap between two
  // events of a Poisson process, as independent agents produce them.
  double Exponential(double mean) { return -mean * std::log1p(-Unit()); }

 private:
  uint64_t state_;
};

}  // namespace agentsim
