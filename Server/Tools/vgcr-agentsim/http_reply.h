// Reading an HTTP/1.1 reply: the status line and the headers the simulator
// needs, and a chunked body.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace agentsim {

// Bounds on what a reply may hold: the server's replies are short texts.
inline constexpr std::size_t kMaxHead = 64 * 1024;
inline constexpr std::size_t kMaxBody = 4 * 1024 * 1024;

struct ReplyHead {
  int status = 0;
  bool http10 = false;
  long long contentLength = -1;  // -1: not given
  bool chunked = false;
  bool close = false;          // "Connection: close" (or HTTP/1.0 without keep-alive)
  std::string signature;       // "SA_SG"
};

// `head`: the status line and headers, without the blank line that ends them.
bool ParseHead(std::string_view head, ReplyHead* out);

enum class Chunks { kNeedMore, kDone, kBad };
// Decodes a chunked body from the start of `data`; on kDone `body` holds it
// and `consumed` the bytes it took, trailers included.
Chunks DecodeChunked(std::string_view data, std::string* body, std::size_t* consumed);

}  // namespace agentsim
