// Compares the JSON reader with another reader of the same library on sample texts and mutations of
// them.

#include <array>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Fuzz/JSONDifferential.h"

namespace {

using Random = std::mt19937_64;

constexpr std::array<std::string_view, 24> pieces = {"[",
                                                     "]",
                                                     "{",
                                                     "}",
                                                     ",",
                                                     ":",
                                                     "\"",
                                                     "\\",
                                                     "null",
                                                     "true",
                                                     "false",
                                                     "-",
                                                     "1",
                                                     "0",
                                                     "1.5",
                                                     "1e5",
                                                     " ",
                                                     "\n",
                                                     "\"a\"",
                                                     "\\u0041",
                                                     "\\ud83d",
                                                     "\\ude00",
                                                     "18446744073709551616",
                                                     "\xc3\xa9"};

std::size_t below(Random& random, std::size_t limit) {
  return static_cast<std::size_t>(random() % limit);
}

std::string anyString(Random& random) {
  constexpr std::array<std::string_view, 12> parts = {
      "a", "key", "\\n", "\\u0000", "\\ud83d\\ude00", "\\\"", "\\\\", "\xd0\x96",
      "/", " ",   "[",   ","};
  std::string text = "\"";
  for (std::size_t count = below(random, 5); count > 0; --count)
    text += parts[below(random, parts.size())];
  return text + "\"";
}

std::string anyNumber(Random& random) {
  constexpr std::array<std::string_view, 12> numbers = {"0",
                                                        "-0",
                                                        "-0.0",
                                                        "1e-7",
                                                        "3.0",
                                                        "9007199254740993",
                                                        "18446744073709551615",
                                                        "18446744073709551616",
                                                        "-9223372036854775808",
                                                        "-9223372036854775809",
                                                        "1e308",
                                                        "1E+2"};
  return std::string(numbers[below(random, numbers.size())]);
}

std::string anyValue(Random& random, int depth);

std::string anyContainer(Random& random, int depth) {
  const bool isObject = random() % 2 == 0;
  std::string text = isObject ? "{" : "[";
  const std::size_t count = below(random, 5);
  for (std::size_t item = 0; item < count; ++item) {
    if (item != 0) text += random() % 4 == 0 ? " , " : ",";
    if (isObject) text += anyString(random) + (random() % 4 == 0 ? " :\n" : ":");
    text += anyValue(random, depth - 1);
  }
  return text + (isObject ? "}" : "]");
}

std::string anyValue(Random& random, int depth) {
  switch (below(random, depth > 0 ? 6 : 3)) {
    case 0:
      return anyString(random);
    case 1:
      return anyNumber(random);
    case 2:
      return std::string(pieces[8 + below(random, 3)]);
    default:
      return anyContainer(random, depth);
  }
}

/// Inserts, removes, duplicates or overwrites a byte or a piece of the text.
void mutate(std::string& text, Random& random) {
  const std::size_t at = below(random, text.size() + 1);
  const std::size_t length = std::min(below(random, 4), text.size() - at);
  switch (below(random, 5)) {
    case 0:
      text.erase(at, length);
      break;
    case 1:
      text.insert(at, pieces[below(random, pieces.size())]);
      break;
    case 2:
      text.insert(at, text.substr(at, length));
      break;
    case 3:
      text.insert(at, 1, static_cast<char>(random()));
      break;
    default:
      if (at < text.size()) text[at] = static_cast<char>(random());
  }
}

std::string printable(std::string_view text) {
  std::string shown;
  for (const char character : text) {
    constexpr std::string_view digits = "0123456789abcdef";
    const auto code = static_cast<unsigned char>(character);
    if (code >= 0x20 && code < 0x7f) {
      shown += character;
    } else {
      shown.append("\\x").append(1, digits[code >> 4]).append(1, digits[code & 15]);
    }
  }
  return shown;
}

void expectAgreement(const std::string& text) {
  const auto disagreement = kiv::fuzz::disagreementOnJSON(text);
  EXPECT_FALSE(disagreement) << printable(text) << "\n" << *disagreement;
}

/// The seed of this run. Set KIVRESOURCE_TEST_SEED to repeat an earlier run.
std::uint64_t seed() {
  const char* const given = std::getenv("KIVRESOURCE_TEST_SEED");
  return given ? std::strtoull(given, nullptr, 10) : std::random_device()();
}

TEST(JSONDifferentialTest, ShortTextsOfAllPiecesAreJudgedAlike) {
  std::vector<std::string> texts = {""};
  for (int length = 0; length < 3; ++length) {
    std::vector<std::string> longer;
    for (const std::string& text : texts) {
      for (const std::string_view piece : pieces)
        longer.push_back(text + std::string(piece));
    }
    for (const std::string& text : longer) {
      expectAgreement(text);
      expectAgreement("[" + text + "]");
      expectAgreement("{\"a\":" + text + "}");
    }
    texts = std::move(longer);
  }
}

TEST(JSONDifferentialTest, GeneratedTextsAndTheirMutationsAreJudgedAlike) {
  const std::uint64_t used = seed();
  std::cout << "KIVRESOURCE_TEST_SEED=" << used << std::endl;
  RecordProperty("seed", std::to_string(used));
  Random random(used);
  for (int round = 0; round < 4000 && !HasFailure(); ++round) {
    const std::string whole = anyContainer(random, 5);
    expectAgreement(whole);
    std::string mutated = whole;
    for (int step = 0; step < 8; ++step) {
      mutate(mutated, random);
      expectAgreement(mutated);
    }
  }
}

}  // namespace
