#include <gtest/gtest.h>

#include "Platform/KivStorageService/PathFolding.h"

namespace kiv::storage {
namespace {

TEST(PathFoldingTest, NamesThatSomeFileSystemTakesForOneFoldAlike) {
  const std::pair<const char*, const char*> pairs[] = {
      {"README.TXT", "readme.txt"},
      {"caf\u00e9", "cafe\u0301"},
      {"CAF\u00c9", "cafe\u0301"},
      {"\u00d8re", "\u00f8re"},
      {"\u0141\u00f3d\u017a", "\u0142o\u0301dz\u0301"},
      {"\u0130", "i\u0307"},
      {"Stra\u00dfe", "STRASSE"},
      {"\u0411\u0410\u041d\u041d\u0415\u0420", "\u0431\u0430\u043d\u043d\u0435\u0440"},
      {"\u0439", "\u0438\u0306"},
      {"\u0401", "\u0435\u0308"},
      {"\u03a3\u03a3", "\u03c3\u03c2"},
      {"\u1ec6", "e\u0323\u0302"},
  };
  for (const auto& [one, other] : pairs)
    EXPECT_EQ(foldedName(one), foldedName(other)) << one;
}

TEST(PathFoldingTest, OtherNamesFoldApart) {
  const std::pair<const char*, const char*> pairs[] = {
      {"a", "b"}, {"caf\u00e9", "cafe"}, {"\u0435", "e"}, {"a1", "a\u00b9"}, {"\xff", "\xfe"}};
  for (const auto& [one, other] : pairs)
    EXPECT_NE(foldedName(one), foldedName(other)) << one;
}

}  // namespace
}  // namespace kiv::storage
