#pragma once

#include <string>
#include <vector>

namespace kiv::test {

/// A null-terminated array for exec and its relatives; valid as long as the texts.
inline std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> all;
  all.reserve(texts.size() + 1);
  for (auto& text : texts)
    all.push_back(text.data());
  all.push_back(nullptr);
  return all;
}

}  // namespace kiv::test
