#include <gtest/gtest.h>

#include "KivPlatform/Foundation/text/Unicode.h"
#include "KivPlatform/KivStorageService/store/StorageErrors.h"

namespace kiv::storage {
namespace {

TEST(StorageErrorsTest, QuotesNamesOnOneReadableLine) {
  EXPECT_EQ(quoted("a.png"), "\"a.png\"");
  EXPECT_EQ(quoted("caf\u00e9"), "\"caf\u00e9\"");
  EXPECT_EQ(quoted(std::string_view("a\0\n\x7f", 4)), "\"a\\x00\\x0a\\x7f\"");
  EXPECT_EQ(quoted("\xff\u00e9"), "\"\\xff\\xc3\\xa9\"");
}

TEST(StorageErrorsTest, ShortensLongNamesWithoutCuttingACharacter) {
  std::string name;
  for (int i = 0; i < 1000; ++i)
    name += "\u65e5";
  const std::string shown = storage::quoted(name);
  EXPECT_LT(shown.size(), 320U);
  EXPECT_NE(shown.find("..."), shown.npos);
  EXPECT_TRUE(unicode::isUTF8(shown));
}

}  // namespace
}  // namespace kiv::storage
