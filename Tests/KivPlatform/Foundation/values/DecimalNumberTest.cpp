#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <system_error>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "KivPlatform/Foundation/values/JSONText.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using Reader = std::errc (*)(std::string_view, double&);

class DecimalNumberTest : public testing::TestWithParam<Reader> {
 protected:
  static double read(std::string_view text) {
    double number = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(GetParam()(text, number), std::errc()) << text;
    return number;
  }
};

TEST_P(DecimalNumberTest, ReadsTheNearestDouble) {
  EXPECT_EQ(read("0"), 0);
  EXPECT_EQ(read("-1.5"), -1.5);
  EXPECT_EQ(read("4.70000000000000017763568394002504646778106689453125"), 4.7);
  EXPECT_EQ(read("9007199254740993"), 9007199254740992.0);
  EXPECT_EQ(read("1.7976931348623157e308"), std::numeric_limits<double>::max());
  EXPECT_EQ(read("2.2250738585072011e-308"), 2.2250738585072011e-308);
  EXPECT_EQ(read("5e-324"), std::numeric_limits<double>::denorm_min());
  EXPECT_EQ(read("1E+2"), 100);
  EXPECT_EQ(read("0." + std::string(100'000, '1')), 0.1111111111111111);
  EXPECT_EQ(read("-123456789012345678901234567890e-20"), -1234567890.1234567);
}

TEST_P(DecimalNumberTest, EndsWhereTheNumberEnds) {
  EXPECT_EQ(read("1.5,2"), 1.5);
  EXPECT_EQ(read("1.5 \n"), 1.5);
  EXPECT_EQ(read("1.5]"), 1.5);
  EXPECT_EQ(read(std::string_view("1.57", 3)), 1.5);
  EXPECT_EQ(read(std::string_view("1.5\0"
                                  "7",
                                  5)),
            1.5);
}

TEST_P(DecimalNumberTest, ANumberThatIsTooLargeIsAnError) {
  for (const char* text : {"1e309", "-1e309", "1e99999999999", "1.7976931348623159e308"}) {
    double number = 7;
    EXPECT_EQ(GetParam()(text, number), std::errc::result_out_of_range) << text;
    EXPECT_EQ(number, 7) << text;
  }
}

TEST_P(DecimalNumberTest, ANumberThatIsTooSmallIsAZeroOrTheError) {
  for (const char* text : {"1e-400", "-1e-400"}) {
    double number = 0;
    const auto problem = GetParam()(text, number);
    EXPECT_EQ(number, 0) << text;
    if (problem == std::errc()) {
      EXPECT_EQ(std::signbit(number), *text == '-') << text;
    } else {
      EXPECT_EQ(problem, std::errc::result_out_of_range) << text;
    }
  }
}

TEST_P(DecimalNumberTest, ReadsBackWhatWasWritten) {
  const auto seed = std::random_device()();
  std::mt19937_64 random(seed);
  for (int round = 0; round < 2000; ++round) {
    const double number =
        std::ldexp(static_cast<double>(random()), static_cast<int>(random() % 2000) - 1040);
    EXPECT_EQ(read(kiv::JSON::toCompactString(number)), number) << "seed " << seed;
  }
}

INSTANTIATE_TEST_SUITE_P(Libraries, DecimalNumberTest,
                         testing::Values(&kiv::readDecimal, &kiv::readDecimalByC),
                         [](const auto& tested) { return tested.index == 0 ? "CXX" : "C"; });

/// Sets a locale in which the decimal separator is a comma.
class DecimalCommaTest : public testing::Test {
 protected:
  void SetUp() override {
    const std::string source = directory_.write(
        "comma",
        "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n");
    kiv::test::ChildProcess compiler(
        "localedef", {"--quiet", "--force", "--no-warnings=ascii", "--inputfile=" + source,
                      directory_.path("comma_XX")});
    compiler.waitForExit();  // its exit code reports warnings about missing categories
    setenv("LOCPATH", directory_.path().c_str(), 1);
    ASSERT_TRUE(std::setlocale(LC_ALL, "comma_XX"));
    ASSERT_EQ(std::strtod("1,5", nullptr), 1.5);
  }
  void TearDown() override {
    std::setlocale(LC_ALL, "C");
    unsetenv("LOCPATH");
  }

  const kiv::test::TemporaryDirectory directory_;
};

TEST_F(DecimalCommaTest, NumbersHaveAPointAllTheSame) {
  for (const Reader reader : {&kiv::readDecimal, &kiv::readDecimalByC}) {
    double number = 0;
    EXPECT_EQ(reader("1234.5,6", number), std::errc());
    EXPECT_EQ(number, 1234.5);
  }
  const auto read = kiv::JSON::read(kiv::Data(std::string("[1.5, -2.5e1]")));
  ASSERT_TRUE(read);
  EXPECT_EQ(kiv::JSON::toCompactString(*read), kiv::JSON::toCompactString(kiv::Array{1.5, -25.0}));
  EXPECT_EQ(kiv::JSON::toCompactString(1.5), "1.5");
}

TEST_F(DecimalCommaTest, TheHostKeepsItsLocale) {
  double number = 0;
  EXPECT_EQ(kiv::readDecimalByC("1.5", number), std::errc());
  EXPECT_EQ(std::strtod("1,5", nullptr), 1.5);
}

}  // namespace
