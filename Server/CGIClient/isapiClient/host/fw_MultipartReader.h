// A multipart/form-data body (RFC 7578) read as it arrives: the form fields
// before the first file part become request parameters, and the file
// part's content is then handed out piece by piece, so that an upload of
// any size costs one window of memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "req_RequestParams.h"

class CHttpRequest;

class CMultipartReader {
 public:
  static constexpr std::size_t kMaxPartHeader = 4096;
  static constexpr std::size_t kMaxBoundary = 70;
  static constexpr std::size_t kWindow = 64 * 1024;

  // The boundary of a "multipart/form-data; boundary=..." content type
  // (1 to 70 characters, quoted or not); false for any other type.
  static bool BoundaryOf(const char* contentType, std::string* boundary);

  // The body's bytes come from the request: what arrived with it, then
  // ReadClient until the announced length (or, for a body of unknown
  // length, until a read delivers nothing).
  CMultipartReader(CHttpRequest& request, const std::string& boundary);

  enum class Fields {
    kFilePart,    // stopped at a file part: its name and file name are known
    kNoFilePart,  // the body ended, or closed, without one
    kMalformed,   // no delimiter where one belongs, or a part header over its limit
    kTooLarge,    // the fields came to more than the limit
  };
  // Reads the parts before the first part with a file name into params
  // (values as they stand), at most `limit` body bytes in all.
  Fields ReadFields(RequestParams& params, std::size_t limit);
  const std::string& FilePartName() const { return filePartName_; }
  const std::string& FileName() const { return fileName_; }  // as sent: UTF-8 by convention
  // Body bytes taken so far.
  uint64_t BodyBytesRead() const { return bodyRead_; }

  enum class Chunk {
    kData,   // *got bytes of the file's content
    kEnd,    // the part's closing delimiter: the file is complete
    kShort,  // the body ended, or a read failed, inside the file
  };
  Chunk ReadFileData(char* into, std::size_t room, std::size_t* got);

 private:
  // Appends more of the body to the window; false when there is no more.
  bool Fill();
  std::size_t Find(std::string_view what, std::size_t from) const;
  // Past the delimiter just consumed: the close ("--"), or a part's headers.
  enum class Next { kPart, kClose, kMalformed, kShort };
  Next AfterDelimiter();
  bool ReadPartHeaders();
  void Consume(std::size_t bytes);

  CHttpRequest& request_;
  std::string delimiter_;  // CR LF "--" boundary
  std::string window_;     // body bytes not yet consumed, from start_
  std::size_t start_ = 0;
  uint64_t bodyRead_ = 0;
  uint64_t consumed_ = 0;  // of the window, the leading CR LF included
  uint32_t availableTaken_ = 0;
  bool bodyEnded_ = false;
  bool inFile_ = false;
  std::string partName_;
  std::string partFileName_;
  bool partHasFileName_ = false;
  std::string filePartName_;
  std::string fileName_;
};
