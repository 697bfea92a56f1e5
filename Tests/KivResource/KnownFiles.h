#pragma once

#include <filesystem>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivResource/KivResourceObject.h"
#include "Tests/Support/ReadFile.h"
#include "Tests/Support/ZipBuilder.h"

/// Files whose contents are derived from their names, so that a test can check that a file is
/// complete, whichever process wrote it.
namespace kiv::test {

inline std::string bytesNamed(std::string_view name) {
  std::string bytes;
  while (bytes.size() < 3'000)
    bytes.append(name).append(";");
  return bytes + "end";
}

/// The files of the archive other than its page: one or, if the name marks the archive as large, as
/// many as are synced in one batch.
inline std::vector<std::string> filesBesideThePage(const std::string& stem) {
  std::vector<std::string> files{"css/style.css"};
  for (int i = 0; stem.starts_with("large") && i < 20; ++i)
    files.push_back("css/" + std::to_string(i) + ".css");
  return files;
}

/// The body that the server sends for the name: an archive, or the file itself.
inline std::string downloadNamed(std::string_view name) {
  if (!name.ends_with(".zip")) return bytesNamed(name);
  const std::string stem(path::deletingPathExtension(name));
  ZipBuilder archive;
  archive.addFile("index.html", bytesNamed(stem));
  for (const std::string& file : filesBesideThePage(stem))
    archive.addFile(file, bytesNamed(stem + file));
  return archive.build();
}

inline bool holdsBytesNamed(const std::string& path, std::string_view name) {
  return readFile(path) == bytesNamed(name);
}

/// True if the directory contains exactly the files of its archive.
inline bool isWholeArchive(const std::string& directory) {
  const std::string stem(path::lastPathComponent(directory));
  const auto items = std::filesystem::recursive_directory_iterator(directory);
  const auto files = filesBesideThePage(stem);
  for (const std::string& file : files) {
    if (!holdsBytesNamed(directory + "/" + file, stem + file)) return false;
  }
  return std::distance(begin(items), end(items)) == std::ptrdiff_t(files.size()) + 2 &&
         holdsBytesNamed(directory + "/index.html", stem);
}

/// True if every file that the resource uses is complete.
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
