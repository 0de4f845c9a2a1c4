// Fuzz target: a client's query string or form body, as the dispatcher reads
// it (UTF-8 step, ANSI conversion, parse) and as handlers read values back.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "host/req_RequestParams.h"
#include "platform/codepage.h"
#include "support/mbwc_MBWC.h"
#include "support/utf_Converter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 1u << 16) return 0;
  std::string text(reinterpret_cast<const char*>(data), size);
  // As a POST body: parsed as it came.
  RequestParams body;
  body.Parse(text.data(), text.size());
  // As a GET query: read as UTF-8, converted, then parsed.
  RequestParams query;
  std::unique_ptr<char16_t[]> decoded = UTFConverter::decodeUTF(text.c_str());
  std::string narrow;
  if (decoded && decoded[0]) MBWC::WCToMBString(decoded.get(), &narrow, plat::kCpAcp, 0);
  query.Parse(narrow);
  for (const char* name : {"requestid", "uid", "SA_ISR", "domain", "", "x"}) {
    std::u16string wide;
    std::string ansi;
    body.GetString(name, &wide, 36, false);
    query.GetStringA(name, &ansi, 2500, false);
    query.GetString(name, &wide, 36, true);
  }
  return 0;
}
