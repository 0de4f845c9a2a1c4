#include "fw_MultipartReader.h"

#include <algorithm>
#include <cstring>

#include "fw_HttpRequest.h"
#include "platform/text.h"

namespace {

constexpr uint32_t kUnknownLength = 0xFFFFFFFFu;

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

bool SameWord(std::string_view a, std::string_view b) { return plat::EqualsIgnoringAsciiCase(a, b); }

// The parameters of a header value after its first token: `; name=value`
// pairs, a value a token or a quoted string (a backslash quotes the next
// character). Calls found(name, value) for each; false when malformed.
template <typename Found>
bool ForEachParameter(std::string_view text, Found found) {
  std::size_t at = text.find(';');
  while (at != std::string_view::npos && at < text.size()) {
    ++at;
    const std::size_t equals = text.find('=', at);
    if (equals == std::string_view::npos) return Trim(text.substr(at)).empty();
    const std::string_view name = Trim(text.substr(at, equals - at));
    at = equals + 1;
    while (at < text.size() && IsBlank(text[at])) ++at;
    std::string value;
    if (at < text.size() && text[at] == '"') {
      for (++at; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\\' && at + 1 < text.size()) ++at;
        value.push_back(text[at]);
      }
      if (at >= text.size()) return false;  // no closing quote
      ++at;
    } else {
      const std::size_t end = std::min(text.find(';', at), text.size());
      value = std::string(Trim(text.substr(at, end - at)));
      at = end;
    }
    found(name, value);
    at = text.find(';', at);
  }
  return true;
}

}  // namespace

bool CMultipartReader::BoundaryOf(const char* contentType, std::string* boundary) {
  if (contentType == nullptr) return false;
  const std::string_view type(contentType);
  const std::string_view media = Trim(type.substr(0, type.find(';')));
  if (!SameWord(media, "multipart/form-data")) return false;
  boundary->clear();
  const bool wellFormed = ForEachParameter(type, [&](std::string_view name, const std::string& value) {
    if (SameWord(name, "boundary")) *boundary = value;
  });
  return wellFormed && !boundary->empty() && boundary->size() <= kMaxBoundary;
}

CMultipartReader::CMultipartReader(CHttpRequest& request, const std::string& boundary)
    : request_(request), delimiter_("\r\n--" + boundary), window_("\r\n") {
  // The body is read as if it began with CR LF, so that its first delimiter
  // has the form of every other one.
}

bool CMultipartReader::Fill() {
  if (bodyEnded_) return false;
  if (start_ > 0 && start_ * 2 >= window_.size()) {
    window_.erase(0, start_);
    start_ = 0;
  }
  const uint32_t total = request_.TotalBytes();
  const bool known = total != kUnknownLength;
  if (availableTaken_ < request_.AvailableBytes()) {
    uint32_t take = request_.AvailableBytes() - availableTaken_;
    if (known && bodyRead_ + take > total) take = static_cast<uint32_t>(total - bodyRead_);
    window_.append(reinterpret_cast<const char*>(request_.AvailableData()) + availableTaken_, take);
    availableTaken_ = request_.AvailableBytes();
    bodyRead_ += take;
    if (take > 0) return true;
  }
  if (known && bodyRead_ >= total) {
    bodyEnded_ = true;
    return false;
  }
  uint32_t ask = static_cast<uint32_t>(kWindow);
  if (known) ask = static_cast<uint32_t>(std::min<uint64_t>(ask, total - bodyRead_));
  const std::size_t old = window_.size();
  window_.resize(old + ask);
  uint32_t size = ask;
  const bool ok = request_.ReadClient(window_.data() + old, &size);
  window_.resize(old + (ok ? size : 0));
  if (!ok || size == 0) {
    bodyEnded_ = true;
    return false;
  }
  bodyRead_ += size;
  return true;
}

std::size_t CMultipartReader::Find(std::string_view what, std::size_t from) const {
  return std::string_view(window_).find(what, from);
}

void CMultipartReader::Consume(std::size_t bytes) {
  start_ += bytes;
  consumed_ += bytes;
}

CMultipartReader::Next CMultipartReader::AfterDelimiter() {
  // "--" closes the body; else optional blanks and CR LF begin a part.
  // Offsets count from start_, which a Fill may move.
  for (std::size_t at = 0;; ++at) {
    while (window_.size() - start_ < at + 2) {
      if (!Fill()) return Next::kShort;
    }
    const char* here = window_.data() + start_ + at;
    if (at == 0 && here[0] == '-' && here[1] == '-') return Next::kClose;
    if (here[0] == '\r' && here[1] == '\n') {
      Consume(at + 2);
      return Next::kPart;
    }
    if (!IsBlank(here[0]) || at > 64) return Next::kMalformed;
  }
}

bool CMultipartReader::ReadPartHeaders() {
  partName_.clear();
  partFileName_.clear();
  partHasFileName_ = false;
  std::size_t end = std::string_view::npos;
  for (;;) {
    if (window_.size() - start_ >= 2 && window_.compare(start_, 2, "\r\n") == 0) {
      end = start_;  // a part without headers
      break;
    }
    end = Find("\r\n\r\n", start_);
    if (end != std::string_view::npos) {
      end += 2;
      break;
    }
    if (window_.size() - start_ > kMaxPartHeader || !Fill()) return false;
  }
  if (end - start_ > kMaxPartHeader) return false;
  std::string_view headers(window_.data() + start_, end - start_);
  bool wellFormed = true;
  while (!headers.empty()) {
    const std::size_t eol = headers.find("\r\n");
    const std::string_view line = headers.substr(0, eol);
    headers.remove_prefix(eol == std::string_view::npos ? headers.size() : eol + 2);
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || !SameWord(Trim(line.substr(0, colon)), "Content-Disposition")) continue;
    const std::string_view value = line.substr(colon + 1);
    if (!SameWord(Trim(value.substr(0, value.find(';'))), "form-data")) continue;
    wellFormed = ForEachParameter(value, [&](std::string_view name, const std::string& text) {
      if (SameWord(name, "name")) partName_ = text;
      if (SameWord(name, "filename")) partFileName_ = text, partHasFileName_ = true;
    });
  }
  Consume(end + 2 - start_);
  return wellFormed;
}

CMultipartReader::Fields CMultipartReader::ReadFields(RequestParams& params, std::size_t limit) {
  // The limit counts what the fields take, not what a read brought in
  // beyond them (the file's first bytes, typically), nor the CR LF the
  // window began with.
  const uint64_t begin = consumed_;
  const uint64_t allowed = limit + (consumed_ == 0 ? 2 : 0);
  bool first = true;
  for (;;) {
    std::size_t found = Find(delimiter_, start_);
    while (found == std::string_view::npos) {
      if (consumed_ - begin + (window_.size() - start_) > allowed) return Fields::kTooLarge;
      if (!Fill()) return first ? Fields::kMalformed : Fields::kNoFilePart;
      found = Find(delimiter_, start_);
    }
    // Before the first delimiter lies the preamble, which nobody reads.
    if (!first && !partName_.empty()) params.Set(partName_, window_.substr(start_, found - start_));
    Consume(found + delimiter_.size() - start_);
    first = false;
    if (consumed_ - begin > allowed) return Fields::kTooLarge;
    switch (AfterDelimiter()) {
      case Next::kClose: return Fields::kNoFilePart;
      case Next::kShort: return Fields::kNoFilePart;
      case Next::kMalformed: return Fields::kMalformed;
      case Next::kPart: break;
    }
    if (!ReadPartHeaders()) return Fields::kMalformed;
    if (partHasFileName_) {
      filePartName_ = partName_;
      fileName_ = partFileName_;
      inFile_ = true;
      return Fields::kFilePart;
    }
  }
}

CMultipartReader::Chunk CMultipartReader::ReadFileData(char* into, std::size_t room, std::size_t* got) {
  *got = 0;
  if (!inFile_) return Chunk::kEnd;
  for (;;) {
    const std::size_t found = Find(delimiter_, start_);
    std::size_t ready = 0;
    if (found == start_) {
      // Only the close ("--") or another part (blanks, CR LF) may follow; a
      // body that stops here was cut, not finished.
      while (window_.size() - start_ < delimiter_.size() + 2) {
        if (!Fill()) return Chunk::kShort;
      }
      const char* after = window_.data() + start_ + delimiter_.size();
      if (!(after[0] == '-' && after[1] == '-') && !(after[0] == '\r' && after[1] == '\n') && !IsBlank(after[0])) {
        return Chunk::kShort;
      }
      Consume(delimiter_.size());
      inFile_ = false;
      return Chunk::kEnd;
    }
    if (found != std::string_view::npos) {
      ready = found - start_;
    } else if (window_.size() - start_ >= delimiter_.size()) {
      // The tail might be the start of the delimiter: keep it for the next look.
      ready = window_.size() - start_ - (delimiter_.size() - 1);
    }
    if (ready > 0) {
      *got = std::min(ready, room);
      std::memcpy(into, window_.data() + start_, *got);
      Consume(*got);
      return Chunk::kData;
    }
    if (!Fill()) return Chunk::kShort;
  }
}
