#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "KivResource/KivResourceObject.h"
#include "Platform/Foundation/Path.h"
#include "Tests/Support/ZipBuilder.h"

/// Files whose contents follow from their names, so that whoever finds one can tell whether it is
/// whole, whichever process wrote it.
namespace kiv::test {

inline std::string bytesNamed(std::string_view name) {
  std::string bytes;
  while (bytes.size() < 3'000)
    bytes.append(name).append(";");
  return bytes + "end";
}

/// What a server has under the name: an archive of two files, or the file itself.
inline std::string downloadNamed(std::string_view name) {
  if (!name.ends_with(".zip")) return bytesNamed(name);
  const std::string stem(path::deletingPathExtension(name));
  return ZipBuilder()
      .addFile("index.html", bytesNamed(stem))
      .addFile("css/style.css", bytesNamed(stem + ".css"))
      .build();
}

inline bool holdsBytesNamed(const std::string& path, std::string_view name) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {}) == bytesNamed(name);
}

/// True where the directory of the page holds both files of its archive, and nothing else.
inline bool isWholeArchive(const std::string& directory) {
  const std::string stem(path::lastPathComponent(directory));
  const auto items = std::filesystem::recursive_directory_iterator(directory);
  return std::distance(begin(items), end(items)) == 3 &&
         holdsBytesNamed(directory + "/index.html", stem) &&
         holdsBytesNamed(directory + "/css/style.css", stem + ".css");
}

/// True where every file that the resource uses is whole.
inline bool isWhole(const KivResource& resource) {
  for (const std::string& file : resource.useFilePaths()) {
    const std::string_view name = path::lastPathComponent(file);
    const bool isWholeFile =
        name == "index.html" ? isWholeArchive(std::string(path::deletingLastPathComponent(file)))
                             : holdsBytesNamed(file, name);
    if (!isWholeFile) return false;
  }
  return resource.filesExist();
}

}  // namespace kiv::test
