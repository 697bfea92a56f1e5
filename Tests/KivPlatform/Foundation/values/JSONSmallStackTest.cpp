// JSON on a thread with a stack of 128 KiB, as in some hosts: stack use must not grow with the
// nesting of a text or value.

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "Tests/Support/SmallStack.h"

namespace {

using kiv::Array;
using kiv::Data;
using kiv::Dictionary;
using kiv::JSON;
using kiv::Value;

constexpr std::size_t smallStack = std::size_t{128} * 1024;
constexpr int farBeyondTheLimit = 100'000;

void onSmallStack(const std::function<void()>& job) {
  kiv::test::runWithStack(smallStack, job);
}

/// Nests arrays and dictionaries alternately, with other elements before and after each level.
Value nested(int depth) {
  Value value("innermost");
  for (int level = 0; level < depth; ++level) {
    value = level % 2 == 0 ? Value(Array{1, std::move(value), 2})
                           : Value(Dictionary{{"a", 1}, {"k", std::move(value)}, {"z", 2}});
  }
  return value;
}

TEST(JSONSmallStackTest, TheDeepestTextIsWrittenAndRead) {
  bool isSame = false;
  onSmallStack([&] {
    const Value value = nested(JSON::deepestNesting);
    const auto text = JSON::write(value);
    const auto again = text ? JSON::read(*text) : std::nullopt;
    isSame = again && *again == value;
  });
  EXPECT_TRUE(isSame);
}

TEST(JSONSmallStackTest, TheDeepestTextOfAListIsRead) {
  const std::string brackets(JSON::deepestNesting, '[');
  const std::string text = brackets + std::string(JSON::deepestNesting, ']');
  bool isRead = false;
  onSmallStack([&] { isRead = JSON::read(Data(text)).has_value(); });
  EXPECT_TRUE(isRead);
}

TEST(JSONSmallStackTest, ATextBeyondTheLimitIsRefused) {
  const std::string brackets(farBeyondTheLimit, '[');
  const std::string objects = "{\"k\":" + brackets;
  std::string messages;
  onSmallStack([&] {
    for (const std::string& text : {brackets, objects}) {
      const auto value = JSON::read(Data(text));
      if (!value) messages += std::to_string(value.error().code);
    }
  });
  EXPECT_EQ(messages.size(), 2U);
}

TEST(JSONSmallStackTest, TheDeepestValueIsDescribed) {
  std::string line;
  onSmallStack([&] { line = JSON::toCompactString(nested(JSON::deepestNesting)); });
  const auto again = JSON::read(Data(line));
  ASSERT_TRUE(again);
  EXPECT_TRUE(*again == nested(JSON::deepestNesting));
}

TEST(JSONSmallStackTest, AValueFarBeyondTheLimitIsComparedRefusedDescribedAndDestroyed) {
  bool isSame = false;
  bool isOther = true;
  bool isWritten = true;
  std::string line;
  onSmallStack([&] {
    const Value value = nested(farBeyondTheLimit);
    isSame = value == nested(farBeyondTheLimit);
    isOther = value == nested(farBeyondTheLimit - 2);
    isWritten = JSON::write(value).has_value();
    line = JSON::toCompactString(value);
  });
  EXPECT_TRUE(isSame);
  EXPECT_FALSE(isOther);
  EXPECT_FALSE(isWritten);
  EXPECT_NE(line.find("null"), line.npos);
}

}  // namespace
