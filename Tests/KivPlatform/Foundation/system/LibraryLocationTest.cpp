#include <filesystem>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/system/LibraryLocation.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

TEST(LibraryLocationTest, IsTheDirectoryOfTheProgramThatHasTheLibraryInside) {
  const auto program = std::filesystem::canonical("/proc/self/exe");
  EXPECT_EQ(kiv::directoryOfThisLibrary(), program.parent_path().string());
}

TEST(LibraryLocationTest, DoesNotDependOnTheCurrentDirectory) {
  const auto before = std::filesystem::current_path();
  const kiv::test::TemporaryDirectory other;
  const auto here = kiv::directoryOfThisLibrary();
  std::filesystem::current_path(other.path());
  EXPECT_EQ(kiv::directoryOfThisLibrary(), here);
  std::filesystem::current_path(before);
}

}  // namespace
