#include <filesystem>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/system/OperatingSystem.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

TEST(OperatingSystemTest, IsTheDirectoryOfTheProgramThatHasTheLibraryInside) {
  const auto program = std::filesystem::canonical("/proc/self/exe");
  EXPECT_EQ(kiv::system::directoryOfThisLibrary(), program.parent_path().string());
}

TEST(OperatingSystemTest, DoesNotDependOnTheCurrentDirectory) {
  const auto before = std::filesystem::current_path();
  const kiv::test::TemporaryDirectory other;
  const auto here = kiv::system::directoryOfThisLibrary();
  std::filesystem::current_path(other.path());
  EXPECT_EQ(kiv::system::directoryOfThisLibrary(), here);
  std::filesystem::current_path(before);
}

}  // namespace
