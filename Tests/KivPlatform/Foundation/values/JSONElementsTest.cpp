#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "KivPlatform/Foundation/values/JSONText.h"

namespace {

using kiv::Data;
using kiv::JSON;
using kiv::JSONElements;
using Pieces = std::vector<std::string>;

struct Cut {
  Pieces pieces;
  bool isWhole = false;
};

Cut cut(std::string_view text) {
  Cut result;
  JSONElements elements(text);
  for (auto element = elements.next(); !element.empty(); element = elements.next())
    result.pieces.emplace_back(element);
  result.isWhole = elements.isAtEnd();
  return result;
}

TEST(JSONElementsTest, CutsAnArrayIntoItsElements) {
  const Cut result = cut(" [ {\"a\": [1, {}]} ,\n[\"]\", \"\\\"]\"],{}\t] \r\n");
  EXPECT_EQ(result.pieces, (Pieces{"{\"a\": [1, {}]}", "[\"]\", \"\\\"]\"]", "{}"}));
  EXPECT_TRUE(result.isWhole);
}

TEST(JSONElementsTest, AnEmptyArrayHasNoElements) {
  EXPECT_TRUE(cut("[]").isWhole);
  EXPECT_TRUE(cut(" [ ] ").isWhole);
}

TEST(JSONElementsTest, WhatIsNoArrayOfContainersIsNotWhole) {
  for (const char* text : {"", " ", "{}", "[", "]", "[1]", "[{},1]", "[\"a\"]", "[{}", "[{},",
                           "[{},]", "[,{}]", "[{} {}]", "[{}]]", "[{}]x", "[{\"a\":1]", "x[{}]"}) {
    EXPECT_FALSE(cut(text).isWhole) << text;
  }
}

// --- Arrays read alone and within an object ------------------------------------------------------

/// Generates arrays of objects and arrays, some of them with errors.
class RandomText {
 public:
  explicit RandomText(std::uint32_t seed) : random_(seed) {}

  std::string next() {
    std::string text = array(0);
    if (below(2) == 0) return text;
    constexpr std::string_view junk = "[]{},:\"\\ 1ae\x80\n-.";
    for (std::size_t count = below(3) + 1; count > 0; --count)
      text[below(text.size())] = junk[below(junk.size())];
    return text;
  }

 private:
  std::size_t below(std::size_t bound) { return random_() % bound; }

  std::string array(int depth) {
    std::string text = "[";
    for (std::size_t count = below(4); count > 0; --count) {
      if (text.size() > 1) text += below(2) == 0 ? "," : " ,\n ";
      text += depth == 0 ? container(depth + 1) : value(depth + 1);
    }
    return text + "]";
  }
  std::string object(int depth) {
    std::string text = "{";
    for (std::size_t count = below(4); count > 0; --count) {
      if (text.size() > 1) text += ",";
      text += std::string("\"k") + static_cast<char>('a' + below(3)) + "\": " + value(depth + 1);
    }
    return text + "}";
  }
  std::string container(int depth) { return below(3) == 0 ? array(depth) : object(depth); }
  std::string value(int depth) {
    constexpr const char* scalars[] = {"1",
                                       "-2.5e3",
                                       "true",
                                       "null",
                                       "\"\"",
                                       "\"a]}\\\"\\\\\"",
                                       "18446744073709551616",
                                       "\"\\u00e9{[\""};
    return depth < 4 && below(3) == 0 ? container(depth) : scalars[below(std::size(scalars))];
  }

  std::mt19937 random_;
};

TEST(JSONElementsTest, AnArrayReadsTheSameByItselfAndWithinAnObject) {
  const std::uint32_t seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  RandomText texts(seed);
  int valid = 0;
  for (int number = 0; number < 5000; ++number) {
    const std::string text = texts.next();
    const auto alone = JSON::read(Data(text));
    const auto within = JSON::read(Data("{\"a\":" + text + "\n}"));
    // An error may close the array early and add a key to the object around it, as in `[],"b":[]`.
    if (within && within->dictionary().size() != 1) continue;
    const bool isBare = within && within->dictionary()["a"].kind() < kiv::Value::Kind::array;
    if (isBare) continue;  // a scalar, which is valid in an object but not as a top level
    ASSERT_EQ(alone.has_value(), within.has_value()) << text;
    if (!alone) continue;
    ++valid;
    ASSERT_EQ(JSON::toCompactString(*alone), JSON::toCompactString(within->dictionary()["a"]))
        << text;
  }
  EXPECT_GT(valid, 1000);
}

}  // namespace
