#include <set>
#include <string>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/KeyedHash.h"

namespace {

using kiv::HashKey;
using kiv::keyedHash;

constexpr HashKey key{1, 2};

TEST(KeyedHashTest, EqualTextsHashAlike) {
  for (const std::string text : {"", "a", "12345678", "a text of more than one word"}) {
    EXPECT_EQ(keyedHash(text, key), keyedHash(std::string(text), key)) << text;
  }
}

TEST(KeyedHashTest, StaysTheSameFromVersionToVersion) {
  EXPECT_EQ(keyedHash("", key), 0x5aba89fd1c2b68ccU);
  EXPECT_EQ(keyedHash("https://a.example/banner.png", key), 0x9ab902cc7f5aedf0U);
}

TEST(KeyedHashTest, LengthAndEveryByteCount) {
  std::set<std::uint64_t> hashes;
  std::size_t texts = 0;
  for (std::size_t length = 0; length < 40; ++length) {
    const std::string text(length, '\0');
    hashes.insert(keyedHash(text, key));
    ++texts;
    for (std::size_t place = 0; place < length; ++place, ++texts) {
      std::string other = text;
      other[place] = '\x80';
      hashes.insert(keyedHash(other, key));
    }
  }
  EXPECT_EQ(hashes.size(), texts);
}

TEST(KeyedHashTest, BothHalvesOfTheKeyCount) {
  EXPECT_NE(keyedHash("a", key), keyedHash("a", HashKey{2, 2}));
  EXPECT_NE(keyedHash("a", key), keyedHash("a", HashKey{1, 1}));
  EXPECT_NE(keyedHash("a", HashKey::random()), keyedHash("a", HashKey::random()));
}

TEST(KeyedHashTest, SpreadsOverBothHalves) {
  std::set<std::uint32_t> low;
  std::set<std::uint32_t> high;
  for (int number = 0; number < 1000; ++number) {
    const std::uint64_t hash = keyedHash(std::to_string(number), key);
    low.insert(static_cast<std::uint32_t>(hash));
    high.insert(static_cast<std::uint32_t>(hash >> 32));
  }
  EXPECT_GE(low.size(), 998U);
  EXPECT_GE(high.size(), 998U);
}

}  // namespace
