#include "platform/temp_file.h"

namespace plat {

std::u16string FileNamePart(const std::u16string& path) {
  std::size_t cut = path.find_last_of(u"\\/");
  return cut == std::u16string::npos ? path : path.substr(cut + 1);
}

}  // namespace plat
