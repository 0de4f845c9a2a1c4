// Fuzz target: what a client uploads. A multipart body as the dispatcher
// and the upload handler read it (fields, then the file part in pieces, the
// body cut into a preload and reads at a point the input picks), and a scan
// settings section as the configuration upload parses it.
#include <cstddef>
#include <cstdint>
#include <string>

#include "handlers/hdl_ScanCfg.h"
#include "host/fw_HttpRequest.h"
#include "isapi/exchange.h"
#include "platform/text.h"

namespace {

void ReadMultipart(const std::string& body, uint32_t preload) {
  isapi::Request request;
  request.method = "POST";
  request.contentType = "multipart/form-data; boundary=fz";
  request.body = body;
  request.preload = preload;
  isapi::Exchange exchange(std::move(request));
  CHttpRequest http;
  if (!http.Initialize(exchange.Ecb(), CHttpRequest::kMaxFormSize)) return;
  http.ReadMultipartFields("fz");
  if (CMultipartReader* file = http.FilePart()) {
    char piece[257];
    std::size_t got = 0;
    uint64_t total = 0;
    while (file->ReadFileData(piece, 1 + preload % 256, &got) == CMultipartReader::Chunk::kData) {
      total += got;
      if (got == 0 || total > body.size()) __builtin_trap();  // no progress, or bytes from nowhere
    }
  }
  http.Params().Lookup("requestid");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2 || size > 1u << 17) return 0;
  const std::string rest(reinterpret_cast<const char*>(data) + 2, size - 2);
  if (data[0] & 1) {
    const scancfg::Section& section = scancfg::kSections[data[1] % scancfg::kSectionCount];
    std::u16string canonical;
    std::string where;
    scancfg::ParseSection(section, plat::FromUtf8(rest), &canonical, &where);
    return 0;
  }
  ReadMultipart(rest, static_cast<uint32_t>(data[1]) * (data[0] >> 1));
  std::string boundary;
  CMultipartReader::BoundaryOf(rest.c_str(), &boundary);
  return 0;
}
