#pragma once

#include <fstream>
#include <iterator>
#include <string>

namespace kiv::test {

/// The bytes of a file; none where it cannot be read.
inline std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace kiv::test
