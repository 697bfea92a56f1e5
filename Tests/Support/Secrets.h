#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/Support/ReadFile.h"

namespace kiv::test {

/// Expects that none of the secrets is in the text, which `where` names.
inline void expectNoSecret(const std::vector<std::string>& secrets, std::string_view text,
                           const std::string& where) {
  for (const std::string& secret : secrets)
    EXPECT_EQ(text.find(secret), std::string_view::npos) << where << " holds " << secret;
}

/// The same for the names and the contents of all files in the directory.
inline void expectNoSecretOnDisk(const std::vector<std::string>& secrets,
                                 const std::string& directory) {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    const std::string path = entry.path().string();
    expectNoSecret(secrets, path, "a path");
    if (entry.is_regular_file()) expectNoSecret(secrets, readFile(path), path);
  }
}

}  // namespace kiv::test
