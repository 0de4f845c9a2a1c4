#include "http_reply.h"

#include <cctype>
#include <cstdlib>

namespace agentsim {

namespace {

bool SameWord(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  }
  return true;
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) text.remove_suffix(1);
  return text;
}

bool ContainsWord(std::string_view list, std::string_view word) {
  while (!list.empty()) {
    const std::size_t comma = list.find(',');
    if (SameWord(Trim(list.substr(0, comma)), word)) return true;
    if (comma == std::string_view::npos) break;
    list.remove_prefix(comma + 1);
  }
  return false;
}

bool ParseStatusLine(std::string_view line, ReplyHead* out) {
  if (line.size() < 12 || line.substr(0, 7) != "HTTP/1.") return false;
  out->http10 = line[7] == '0';
  if (line[8] != ' ' || !std::isdigit(static_cast<unsigned char>(line[9])) ||
      !std::isdigit(static_cast<unsigned char>(line[10])) || !std::isdigit(static_cast<unsigned char>(line[11]))) {
    return false;
  }
  out->status = (line[9] - '0') * 100 + (line[10] - '0') * 10 + (line[11] - '0');
  out->close = out->http10;
  return true;
}

bool ApplyHeader(std::string_view name, std::string_view value, ReplyHead* out) {
  if (SameWord(name, "Content-Length")) {
    if (value.empty() || value.size() > 12 || value.find_first_not_of("0123456789") != std::string_view::npos) {
      return false;
    }
    out->contentLength = std::strtoll(std::string(value).c_str(), nullptr, 10);
  } else if (SameWord(name, "Transfer-Encoding")) {
    out->chunked = ContainsWord(value, "chunked");
  } else if (SameWord(name, "Connection")) {
    if (ContainsWord(value, "close")) out->close = true;
    if (out->http10 && ContainsWord(value, "keep-alive")) out->close = false;
  } else if (SameWord(name, "SA_SG")) {
    out->signature = value;
  }
  return true;
}

}  // namespace

bool ParseHead(std::string_view head, ReplyHead* out) {
  std::size_t end = head.find("\r\n");
  if (!ParseStatusLine(head.substr(0, end), out)) return false;
  while (end != std::string_view::npos) {
    head.remove_prefix(end + 2);
    end = head.find("\r\n");
    const std::string_view line = head.substr(0, end);
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return false;
    if (!ApplyHeader(line.substr(0, colon), Trim(line.substr(colon + 1)), out)) return false;
  }
  return true;
}

Chunks DecodeChunked(std::string_view data, std::string* body, std::size_t* consumed) {
  body->clear();
  std::size_t at = 0;
  for (;;) {
    const std::size_t lineEnd = data.find("\r\n", at);
    if (lineEnd == std::string_view::npos) return data.size() - at > 1024 ? Chunks::kBad : Chunks::kNeedMore;
    std::string_view sizeText = data.substr(at, lineEnd - at);
    sizeText = sizeText.substr(0, sizeText.find(';'));  // chunk extensions
    sizeText = Trim(sizeText);
    if (sizeText.empty() || sizeText.size() > 8 || sizeText.find_first_not_of("0123456789abcdefABCDEF") !=
                                                        std::string_view::npos) {
      return Chunks::kBad;
    }
    const std::size_t size = std::strtoul(std::string(sizeText).c_str(), nullptr, 16);
    at = lineEnd + 2;
    if (size == 0) break;
    if (body->size() + size > kMaxBody) return Chunks::kBad;
    if (data.size() < at + size + 2) return Chunks::kNeedMore;
    if (data.substr(at + size, 2) != "\r\n") return Chunks::kBad;
    body->append(data.substr(at, size));
    at += size + 2;
  }
  // Trailers, if any, end with an empty line.
  for (;;) {
    const std::size_t lineEnd = data.find("\r\n", at);
    if (lineEnd == std::string_view::npos) return data.size() - at > kMaxHead ? Chunks::kBad : Chunks::kNeedMore;
    const bool empty = lineEnd == at;
    at = lineEnd + 2;
    if (empty) break;
  }
  *consumed = at;
  return Chunks::kDone;
}

}  // namespace agentsim
