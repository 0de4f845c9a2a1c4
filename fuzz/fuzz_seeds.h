// Seed inputs for the fuzz targets, built in code so they track the format.
#pragma once

#include <cstdint>
#include <vector>

std::vector<std::vector<uint8_t>> MessageSeeds();
std::vector<std::vector<uint8_t>> RequestSeeds();
