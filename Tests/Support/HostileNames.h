#pragma once

#include <string>
#include <vector>

namespace kiv::test {

/// Names of files and links that no server should send. None of them names a file, whatever `name`
/// is, but some come close to it.
inline std::vector<std::string> hostileNames(const std::string& name = "file.png") {
  using namespace std::string_literals;
  return {"",
          ".",
          "..",
          "/",
          "a/",
          ".zip",
          "..zip",
          "...zip",
          "a/.zip",
          name + "/",
          name + "\0"s,
          name + "\0.png"s,
          std::string(5000, 'a'),
          std::string(5000, 'a') + ".zip",
          "\xff\xfe"};
}

}  // namespace kiv::test
