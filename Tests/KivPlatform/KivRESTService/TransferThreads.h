#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>

namespace kiv::test {

/// The number of transfer threads of this process.
[[nodiscard]] inline std::size_t transferThreads() {
  std::size_t count = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    if (name == "KivRESTService") ++count;
  }
  return count;
}

}  // namespace kiv::test
