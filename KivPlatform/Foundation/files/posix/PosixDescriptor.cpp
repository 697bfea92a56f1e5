#include "KivPlatform/Foundation/files/posix/PosixDescriptor.h"

#include <cerrno>
#include <dirent.h>
#include <string_view>

namespace kiv::posix {

std::optional<std::vector<std::string>> namesInDirectory(Descriptor directory) {
  DIR* const stream = ::fdopendir(directory.number());
  if (!stream) return std::nullopt;
  directory.release();  // the stream owns it now
  std::vector<std::string> names;
  int number = 0;
  while (true) {
    errno = 0;  // the only way to tell the end from an error
    const dirent* const entry = ::readdir(stream);
    number = errno;
    if (!entry) break;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  ::closedir(stream);
  errno = number;
  if (number != 0) return std::nullopt;
  return names;
}

}  // namespace kiv::posix
