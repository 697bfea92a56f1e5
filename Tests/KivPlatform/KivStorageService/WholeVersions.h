#pragma once

#include <string>

#include "Tests/Support/ZipBuilder.h"

/// Contents that show whether a version is complete, partial or a mixture of two.
namespace kiv::test {

inline constexpr int filesOfAWholeArchive = 12;

inline std::string wholeFile(const std::string& version) {
  std::string bytes;
  while (bytes.size() < 200'000)
    bytes += version + ";";
  return bytes + "end";
}

inline bool isWholeFile(const std::string& bytes) {
  const std::string version = bytes.substr(0, bytes.find(';'));
  return bytes == wholeFile(version);
}

inline std::string wholeArchive(const std::string& version) {
  ZipBuilder archive;
  archive.addFile("index.html", version);
  for (int i = 1; i < filesOfAWholeArchive; ++i) {
    archive.addFile("part" + std::to_string(i % 3) + "/" + std::to_string(i) + ".txt", version);
  }
  return archive.build();
}

}  // namespace kiv::test
