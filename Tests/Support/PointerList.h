#pragma once

#include <string>
#include <vector>

namespace kiv::test {

/// The texts as the system calls want them; valid as long as the texts are.
inline std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> all;
  all.reserve(texts.size() + 1);
  for (auto& text : texts)
    all.push_back(text.data());
  all.push_back(nullptr);
  return all;
}

}  // namespace kiv::test
