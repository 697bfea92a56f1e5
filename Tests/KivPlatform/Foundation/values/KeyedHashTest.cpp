#include <set>
#include <string>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/KeyedHash.h"

namespace {

using kiv::keyedHash;

TEST(KeyedHashTest, EqualTextsOfOneDomainHashAlike) {
  for (const std::string text : {"", "a", "12345678", "a text of more than one word"}) {
    EXPECT_EQ(keyedHash(text, 1), keyedHash(std::string(text), 1)) << text;
  }
}

TEST(KeyedHashTest, LengthEveryByteAndTheDomainCount) {
  std::set<std::uint64_t> hashes;
  std::size_t texts = 0;
  for (std::size_t length = 0; length < 40; ++length) {
    const std::string text(length, '\0');
    hashes.insert(keyedHash(text));
    hashes.insert(keyedHash(text, 1));
    texts += 2;
    for (std::size_t place = 0; place < length; ++place, ++texts) {
      std::string other = text;
      other[place] = '\x80';
      hashes.insert(keyedHash(other));
    }
  }
  EXPECT_EQ(hashes.size(), texts);
}

TEST(KeyedHashTest, SpreadsOverBothHalves) {
  std::set<std::uint32_t> low;
  std::set<std::uint32_t> high;
  for (int number = 0; number < 1000; ++number) {
    const std::uint64_t hash = keyedHash(std::to_string(number));
    low.insert(static_cast<std::uint32_t>(hash));
    high.insert(static_cast<std::uint32_t>(hash >> 32));
  }
  EXPECT_GE(low.size(), 998U);
  EXPECT_GE(high.size(), 998U);
}

}  // namespace
