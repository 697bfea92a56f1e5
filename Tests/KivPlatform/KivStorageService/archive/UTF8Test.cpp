#include <gtest/gtest.h>

#include "KivPlatform/KivStorageService/archive/UTF8.h"

namespace kiv::storage {
namespace {

TEST(UTF8Test, DecodesEveryLength) {
  EXPECT_EQ(utf8::decode("a\u00e9\u65e5\U0001F600"), U"a\u00e9\u65e5\U0001F600");
  EXPECT_EQ(utf8::decode(""), U"");
}

TEST(UTF8Test, RefusesWhatIsNotWellFormed) {
  for (const std::string_view text :
       {"\x80", "\xff", "\xc3", "\xc3z", "\xe2\x82", "\xf0\x9f\x98", "\xc0\xaf", "\xe0\x80\xaf",
        "\xf0\x80\x80\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80"}) {
    EXPECT_FALSE(utf8::isValid(text)) << testing::PrintToString(text);
  }
}

}  // namespace
}  // namespace kiv::storage
