// The UTF-8 decoder applied to query strings and parameter values.
#pragma once

#include <memory>

namespace UTFConverter {

// Decodes UTF-8 into a new UTF-16 text. One-, two- and three-byte forms are
// decoded (overlong forms included); a continuation byte as a lead, a four-
// byte or longer form, or a sequence cut short makes the whole text invalid,
// and an invalid text comes back empty rather than missing, so callers see
// an empty value. Null for a null input or when memory runs out.
std::unique_ptr<char16_t[]> decodeUTF(const char* text);

}  // namespace UTFConverter
