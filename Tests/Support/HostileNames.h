#pragma once

#include <string>
#include <vector>

namespace kiv::test {

/// Names that must be rejected. Some are variants of `name`, a file that the test may have stored.
inline std::vector<std::string> hostileNames(const std::string& name = "file.png") {
  using namespace std::string_literals;
  return {"",
          ".",
          "..",
          ".zip",
          "..zip",
          "...zip",
          "back\\slash.png",
          "a:stream",
          "star*.png",
          "dot.",
          "NUL.png",
          name + "\0"s,
          name + "\0.png"s,
          std::string(256, 'n'),
          std::string(252, 'n') + ".zip",
          std::string(5000, 'n')};
}

/// Links whose last component is such a name, or that have no last component.
inline std::vector<std::string> hostileLinks(const std::string& name = "file.png") {
  std::vector<std::string> links = hostileNames(name);
  for (const auto& hostile : hostileNames(name))
    links.push_back("dir/" + hostile);
  links.insert(links.end(), {"/", name + "/"});
  return links;
}

}  // namespace kiv::test
