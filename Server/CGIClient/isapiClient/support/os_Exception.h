// The program's shared error objects: a result code with its message and
// the place (source file, line) that raised it.
#pragma once

#include <cstdint>
#include <string>

namespace OS {

class CReturnValueObj {
 public:
  CReturnValueObj(uint32_t code, int32_t category, std::u16string sourceFile, uint32_t line,
                  std::u16string message)
      : code_(code), category_(category), sourceFile_(std::move(sourceFile)), line_(line),
        message_(std::move(message)) {}
  virtual ~CReturnValueObj() = default;

  uint32_t Code() const { return code_; }
  int32_t Category() const { return category_; }
  const std::u16string& SourceFile() const { return sourceFile_; }
  uint32_t Line() const { return line_; }
  const std::u16string& Message() const { return message_; }

 private:
  uint32_t code_;
  int32_t category_;
  std::u16string sourceFile_;
  uint32_t line_;
  std::u16string message_;
};

// Thrown by value and caught by reference at a handler's boundary.
class CException : public CReturnValueObj {
 public:
  using CReturnValueObj::CReturnValueObj;
};

}  // namespace OS
