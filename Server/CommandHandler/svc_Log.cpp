#include "svc_Log.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <mutex>

namespace svc {
namespace {

std::atomic<bool> quiet{false};
std::mutex lock;

void Write(std::FILE* stream, const std::string& line) {
  std::lock_guard guard(lock);
  std::fwrite(line.data(), 1, line.size(), stream);
  std::fflush(stream);
}

void AppendHex(std::string& out, unsigned char byte) {
  constexpr char kDigits[] = "0123456789abcdef";
  out += "\\x";
  out += kDigits[byte >> 4];
  out += kDigits[byte & 0x0f];
}

// The length of the well-formed UTF-8 sequence at text[i] (2 to 4 bytes,
// no overlong form, no surrogate, at most U+10FFFF), or 0.
std::size_t Utf8SequenceAt(std::string_view text, std::size_t i) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[i + k]); };
  const unsigned char lead = byte(0);
  std::size_t length = 0;
  unsigned char low = 0x80, high = 0xbf;  // the range of the second byte
  if (lead >= 0xc2 && lead <= 0xdf) {
    length = 2;
  } else if (lead >= 0xe0 && lead <= 0xef) {
    length = 3;
    if (lead == 0xe0) low = 0xa0;
    if (lead == 0xed) high = 0x9f;
  } else if (lead >= 0xf0 && lead <= 0xf4) {
    length = 4;
    if (lead == 0xf0) low = 0x90;
    if (lead == 0xf4) high = 0x8f;
  } else {
    return 0;
  }
  if (i + length > text.size() || byte(1) < low || byte(1) > high) return 0;
  for (std::size_t k = 2; k < length; ++k) {
    if (byte(k) < 0x80 || byte(k) > 0xbf) return 0;
  }
  return length;
}

// C1 controls (U+0080 to U+009F; U+0085 is a line end to some readers) and
// the line and paragraph separators.
bool IsLineBreaker(std::string_view sequence) {
  const auto b = [&](std::size_t k) { return static_cast<unsigned char>(sequence[k]); };
  if (sequence.size() == 2) return b(0) == 0xc2 && b(1) <= 0x9f;
  return sequence.size() == 3 && b(0) == 0xe2 && b(1) == 0x80 && (b(2) == 0xa8 || b(2) == 0xa9);
}

}  // namespace

std::string LogText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c < 0x7f && c != '\\') {
      out += static_cast<char>(c);
      ++i;
      continue;
    }
    switch (c) {
      case '\\': out += "\\\\"; ++i; continue;
      case '\n': out += "\\n"; ++i; continue;
      case '\r': out += "\\r"; ++i; continue;
      case '\t': out += "\\t"; ++i; continue;
      default: break;
    }
    const std::size_t length = c < 0x80 ? 0 : Utf8SequenceAt(text, i);
    if (length == 0) {  // a control character, or a byte that is not UTF-8
      AppendHex(out, c);
      ++i;
      continue;
    }
    const std::string_view sequence = text.substr(i, length);
    if (IsLineBreaker(sequence)) {
      for (const char b : sequence) AppendHex(out, static_cast<unsigned char>(b));
    } else {
      out += sequence;
    }
    i += length;
  }
  return out;
}

void SetQuiet(bool value) { quiet = value; }

void Log(std::string_view pipe, std::string_view command, std::string_view what) {
  if (quiet) return;
  Write(stdout, TimeText(false) + " [" + LogText(pipe) + "] " + LogText(command) + ": " + LogText(what) + "\n");
}

void Note(std::string_view what) { Write(stderr, TimeText(false) + " vgcr-cmdhandler: " + LogText(what) + "\n"); }

std::string TimeText(bool utc) {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm parts{};
  if (utc) {
    gmtime_r(&seconds, &parts);
  } else {
    localtime_r(&seconds, &parts);
  }
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", parts.tm_year + 1900, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, static_cast<int>(millis));
  return text;
}

}  // namespace svc
