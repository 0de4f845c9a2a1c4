// Seed inputs for the fuzz targets, built in code so they track the format.
#pragma once

#include <cstdint>
#include <vector>

std::vector<std::vector<uint8_t>> MessageSeeds();
std::vector<std::vector<uint8_t>> RequestSeeds();
// For the service: the first byte picks the pipe, the rest is the request.
std::vector<std::vector<uint8_t>> ServiceSeeds();
// For the HTTP front: the first byte picks the mode (bit 0: adapter), the
// rest is what a client sends.
std::vector<std::vector<uint8_t>> HttpSeeds();
