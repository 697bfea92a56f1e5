#include <gtest/gtest.h>

#include "KivPlatform/Foundation/text/Unicode.h"

namespace kiv::unicode {
namespace {

TEST(UnicodeTest, UTF8OfEveryLengthIsWellFormed) {
  EXPECT_TRUE(isUTF8(""));
  EXPECT_TRUE(isUTF8("a\u00e9\u65e5\U0001F600"));
}

TEST(UnicodeTest, WhatIsNotWellFormedIsNoUTF8) {
  for (const std::string_view text :
       {"\x80", "\xff", "\xc3", "\xc3z", "\xe2\x82", "\xf0\x9f\x98", "\xc0\xaf", "\xe0\x80\xaf",
        "\xf0\x80\x80\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80"}) {
    EXPECT_FALSE(isUTF8(text)) << testing::PrintToString(text);
  }
}

TEST(UnicodeTest, NamesThatSomeFileSystemTakesForOneFoldAlike) {
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
      {"e\u0302\u0323", "e\u0323\u0302"},
      {"\u212a", "k"},
      {"\u212b", "a\u030a"},
      {"\u2126", "\u03c9"},
      {"\ud55c\uae00", "\u1112\u1161\u11ab\u1100\u1173\u11af"},
      {"\u304c", "\u304b\u3099"},
      {"\u0958", "\u0915\u093c"},
      {"\uf900", "\u8c48"},
      {"\u13a0", "\uab70"},
      {"\U00010400", "\U00010428"},
      {"\U0001d15e", "\U0001d157\U0001d165"},
      {"\ufb01", "FI"},
      {"\u0390", "\u1fd3"},
  };
  for (const auto& [one, other] : pairs)
    EXPECT_EQ(folded(one), folded(other)) << one;
}

TEST(UnicodeTest, FoldingTwiceChangesNothingMore) {
  const std::string name = "\u212a\u1ec6\ud55c";
  EXPECT_EQ(folded(name), U"ke\u0323\u0302\u1112\u1161\u11ab");
  EXPECT_EQ(folded("ke\u0323\u0302\u1112\u1161\u11ab"), folded(name));
}

TEST(UnicodeTest, NamesOfAnyLengthFold) {
  EXPECT_EQ(folded(""), U"");
  const std::string one = "\u0390";
  std::string many;
  for (int i = 0; i < 1000; ++i)
    many += one;
  EXPECT_EQ(folded(many).size(), 1000 * folded(one).size());
}

TEST(UnicodeTest, ANameThatIsNoUTF8FoldsByteByByte) {
  EXPECT_EQ(folded("A\xff\xc3\x89"), U"a\u00ff\u00c3\u0089");
}

TEST(UnicodeTest, AFoldedNameIsUTF8) {
  EXPECT_EQ(foldedName(""), "");
  EXPECT_EQ(foldedName("Banner.PNG"), "banner.png");
  EXPECT_EQ(foldedName("Caf\u00c9"), "cafe\u0301");
  EXPECT_EQ(foldedName("\U00010400"), "\U00010428");
  EXPECT_EQ(foldedName("A\xff"), "a\u00ff");
}

TEST(UnicodeTest, OtherNamesFoldApart) {
  const std::pair<const char*, const char*> pairs[] = {
      {"a", "b"},           {"caf\u00e9", "cafe"}, {"\u0435", "e"},
      {"a1", "a\u00b9"},    {"\xff", "\xfe"},      {"\uac00", "\uac01"},
      {"\u30ab", "\uff76"}, {"\u200d", ""},        {"\xc3", "\u00c3"}};
  for (const auto& [one, other] : pairs)
    EXPECT_NE(folded(one), folded(other)) << one;
}

}  // namespace
}  // namespace kiv::unicode
