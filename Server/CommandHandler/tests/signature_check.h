// What a client does with a signed reply: base64-decode "SA_SG" and verify
// it, with nothing but the server's certificate, over the reply bytes and
// the client's number (32-bit little-endian).
#pragma once

#include <cstdint>
#include <string>

bool SignatureVerifies(const std::string& certificatePath, const std::string& reply, int32_t number,
                       const std::string& signature);
