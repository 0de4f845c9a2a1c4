// Upper-case hexadecimal: bytes as two digits each ("%02X"), 32-bit values
// as eight ("%08lX").
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace HexFormat {

std::string Bytes(const uint8_t* data, std::size_t size);
std::string Word(uint32_t value);

}  // namespace HexFormat
