#pragma once

#include <fstream>
#include <iterator>
#include <string>

namespace kiv::test {

/// The contents of a file; empty if it cannot be read.
inline std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace kiv::test
