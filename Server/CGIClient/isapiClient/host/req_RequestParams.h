// A request's parameters: name=value pairs from the query string of a GET or
// the body of a POST. Names match without regard to ASCII case and the last
// occurrence of a name wins. Values are kept as the narrow bytes they
// decoded to; the accessors turn them into UTF-16 (read as UTF-8) with a
// length check.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

class RequestParams {
 public:
  // Distinct names one request may carry; later new names are ignored (a
  // name already present still takes its later value). The largest request
  // a client sends has under 60.
  static constexpr std::size_t kMaxParameters = 256;

  // Parses name=value pairs joined by '&', in place over a writable copy:
  // '+' is a space, "%XY" the byte 16*X+Y (a non-hex digit counts 65535,
  // modulo 256), a '%' with fewer than two bytes behind it ends the string,
  // '#' in a value ends the whole parse, a name without '=' has an empty
  // value. The text ends at its first NUL byte.
  void Parse(const char* text, std::size_t length);
  void Parse(const std::string& text) { Parse(text.data(), text.size()); }

  // One parameter taken as it stands (a form field of a multipart body):
  // the last one of a name wins, as in Parse.
  void Set(const std::string& name, const std::string& value);

  // The narrow value of a name, or null when absent (or the name is null).
  const std::string* Lookup(const char* name) const;

  // The value as UTF-16 (decoded as UTF-8; invalid UTF-8 reads as empty).
  // False when the name is absent, or when the length is over the limit
  // (or, with exact, not equal to it); out holds the value in both of the
  // latter cases.
  bool GetString(const char* name, std::u16string* out, uint32_t limit, bool exact = false) const;
  // The same, converted to the ANSI code page.
  bool GetStringA(const char* name, std::string* out, uint32_t limit, bool exact = false) const;

  std::size_t size() const { return map_.size(); }
  void clear() { map_.clear(); }

  // Case-blind and keyed per process (the bucket placement is ours; only the
  // matching rule is the clients' business).
  struct NameHash {
    std::size_t operator()(const std::string& name) const;
  };
  struct NameEqual {
    bool operator()(const std::string& a, const std::string& b) const;
  };

 private:
  std::unordered_map<std::string, std::string, NameHash, NameEqual> map_{17};
};
