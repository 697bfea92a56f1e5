#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/text/ControlCharacters.h"

namespace {

using namespace std::string_view_literals;

/// The UTF-8 encoding of a code point below U+10000.
std::string utf8(std::uint32_t point) {
  const auto byte = [](std::uint32_t value) { return static_cast<char>(value); };
  if (point < 0x80) return {byte(point)};
  if (point < 0x800) return {byte(0xc0 | point >> 6), byte(0x80 | (point & 0x3f))};
  return {byte(0xe0 | point >> 12), byte(0x80 | (point >> 6 & 0x3f)), byte(0x80 | (point & 0x3f))};
}

std::set<std::uint32_t> controls() {
  std::set<std::uint32_t> points{0x61c, 0x200e, 0x200f, 0x2028, 0x2029};
  const auto add = [&](std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t point = first; point <= last; ++point)
      points.insert(point);
  };
  add(0, 0x1f);
  add(0x7f, 0x9f);
  add(0x202a, 0x202e);
  add(0x2066, 0x2069);
  return points;
}

TEST(ControlCharactersTest, AreFoundAmongAllCharacters) {
  const std::set<std::uint32_t> expected = controls();
  for (std::uint32_t point = 0; point < 0x10000; ++point) {
    const std::string text = utf8(point) + "x";
    EXPECT_EQ(kiv::controlCharacterLength(text), expected.contains(point) ? utf8(point).size() : 0U)
        << "U+" << std::hex << point;
  }
}

TEST(ControlCharactersTest, ThoseThatAreCutOffAreNone) {
  EXPECT_EQ(kiv::controlCharacterLength(""), 0U);
  EXPECT_EQ(kiv::controlCharacterLength("\xc2"), 0U);
  EXPECT_EQ(kiv::controlCharacterLength("\xd8"), 0U);
  EXPECT_EQ(kiv::controlCharacterLength("\xe2"), 0U);
  EXPECT_EQ(kiv::controlCharacterLength("\xe2\x80"), 0U);
}

TEST(ControlCharactersTest, AreWrittenAsEscapes) {
  EXPECT_EQ(kiv::escapingControlCharacters(""), "");
  EXPECT_EQ(kiv::escapingControlCharacters("plain \u00e9 \u20ac \U0001F600"),
            "plain \u00e9 \u20ac \U0001F600");
  EXPECT_EQ(kiv::escapingControlCharacters("a\0b\n\x1b[2J\x7f"sv), R"(a\x00b\x0a\x1b[2J\x7f)");
  EXPECT_EQ(kiv::escapingControlCharacters("\u009b2J"), R"(\xc2\x9b2J)");
  EXPECT_EQ(kiv::escapingControlCharacters("ad\u202egnp.exe"), R"(ad\xe2\x80\xaegnp.exe)");
  EXPECT_EQ(kiv::escapingControlCharacters("\u2066\u2069"), R"(\xe2\x81\xa6\xe2\x81\xa9)");
}

TEST(ControlCharactersTest, BytesThatAreNoTextStay) {
  EXPECT_EQ(kiv::escapingControlCharacters("\xff\xe2"), "\xff\xe2");
  std::string out = "<";
  kiv::appendEscaped(out, "\xff\x01");
  EXPECT_EQ(out, R"(<\xff\x01)");
}

}  // namespace
