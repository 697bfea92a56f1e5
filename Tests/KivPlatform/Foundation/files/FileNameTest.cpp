#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/files/FileName.h"

namespace {

using kiv::filename::isValid;
using kiv::filename::validate;

struct HostileName {
  std::string name;
  std::string_view problem;
};

class HostileNameTest : public testing::TestWithParam<HostileName> {};

TEST_P(HostileNameTest, IsRefusedWithItsReason) {
  EXPECT_EQ(validate(GetParam().name), GetParam().problem);
  EXPECT_FALSE(isValid(GetParam().name));
}

INSTANTIATE_TEST_SUITE_P(
    Names, HostileNameTest,
    testing::Values(HostileName{"", "is empty"}, HostileName{".", "names a directory"},
                    HostileName{"..", "names a directory"},
                    HostileName{std::string("a\0.png", 6), "contains a NUL character"},
                    HostileName{std::string("\0", 1), "contains a NUL character"},
                    HostileName{std::string("..\0", 3), "contains a NUL character"},
                    HostileName{"a/b", "contains a path separator"},
                    HostileName{"/", "contains a path separator"},
                    HostileName{"a/", "contains a path separator"},
                    HostileName{"../a", "contains a path separator"},
                    HostileName{"..\\a", "contains a path separator"},
                    HostileName{"C:\\a", "contains a path separator"},
                    HostileName{"a\n.png", "contains a control character"},
                    HostileName{"\x1f", "contains a control character"},
                    HostileName{"a:stream", "contains one of the characters < > : \" | ? *"},
                    HostileName{"C:", "contains one of the characters < > : \" | ? *"},
                    HostileName{"a.png?v=2", "contains one of the characters < > : \" | ? *"},
                    HostileName{"*", "contains one of the characters < > : \" | ? *"},
                    HostileName{"<a>", "contains one of the characters < > : \" | ? *"},
                    HostileName{"\"a\"", "contains one of the characters < > : \" | ? *"},
                    HostileName{"a|b", "contains one of the characters < > : \" | ? *"},
                    HostileName{"...", "ends with a dot or a space"},
                    HostileName{"a.png.", "ends with a dot or a space"},
                    HostileName{"a.png ", "ends with a dot or a space"},
                    HostileName{" ", "ends with a dot or a space"},
                    HostileName{"CON", "is the name of a device on Windows"},
                    HostileName{"con", "is the name of a device on Windows"},
                    HostileName{"NUL.png", "is the name of a device on Windows"},
                    HostileName{"nul.tar.gz", "is the name of a device on Windows"},
                    HostileName{"Aux .png", "is the name of a device on Windows"},
                    HostileName{"prn.", "ends with a dot or a space"},
                    HostileName{"CONIN$", "is the name of a device on Windows"},
                    HostileName{"conout$.txt", "is the name of a device on Windows"},
                    HostileName{"COM1", "is the name of a device on Windows"},
                    HostileName{"lpt0.html", "is the name of a device on Windows"},
                    HostileName{"com\u00b2.html", "is the name of a device on Windows"},
                    HostileName{std::string(256, 'a'), "is longer than 255 bytes"},
                    HostileName{std::string(100000, '.'), "is longer than 255 bytes"}));

class HarmlessNameTest : public testing::TestWithParam<std::string> {};

TEST_P(HarmlessNameTest, IsTaken) {
  EXPECT_EQ(validate(GetParam()), std::nullopt);
  EXPECT_TRUE(isValid(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Names, HarmlessNameTest,
                         testing::Values("a", "banner.png", "..a", ".hidden", ".zip", " a", "a b",
                                         "-rf", "~", "%2e%2e", "%2f", "PROMO.ZIP", "console.png",
                                         "con1", "icon", "nul_.png", "a.nul", "com", "com10",
                                         "comx.png", "lpt", "\x7f", "a;b", "$", "CONIN",
                                         "\xd1\x84\xd0\xb0\xd0\xb9\xd0\xbb.png", "\xf0\x9f\x8e\x81",
                                         std::string(255, 'a')));

TEST(FileNameTest, LengthCountsBytesNotCharacters) {
  std::string name;
  while (name.size() < 254)
    name += "\xd1\x84";
  EXPECT_TRUE(isValid(name));
  EXPECT_FALSE(isValid(name + "\xd1\x84"));
}

}  // namespace
