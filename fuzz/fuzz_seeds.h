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
// For the upload forms: the first byte's bit 0 picks a scan section (else
// a multipart body), its other bits and the second byte the preload or the
// section; the rest is the text.
std::vector<std::vector<uint8_t>> UploadSeeds();
// For the envelopes: the first byte picks a text to decrypt (0), what
// follows a marker (1 to 3), or a plain text to encrypt (4 to 7); the rest
// is the text.
std::vector<std::vector<uint8_t>> EnvelopeSeeds();
