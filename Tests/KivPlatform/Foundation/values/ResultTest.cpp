#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/Result.h"

namespace kiv {
namespace {

const Error anError("d", 1, "m");

TEST(StatusTest, SuccessTakesAPointerAndNoError) {
  static_assert(sizeof(Status) == sizeof(void*));
  static_assert(std::is_nothrow_default_constructible_v<Status>);
  EXPECT_TRUE(Status());
}

TEST(StatusTest, AFailureHasItsError) {
  Status status = anError;
  ASSERT_FALSE(status);
  EXPECT_EQ(status.error(), anError);
  EXPECT_EQ(std::move(status).error(), anError);
}

TEST(StatusTest, AnErrorIsReportedIfOneIsAskedFor) {
  EXPECT_FALSE(Status(anError).reportTo(nullptr));
  std::optional<Error> place = Error("old", 0, "old");
  EXPECT_FALSE(Status(anError).reportTo(&place));
  EXPECT_EQ(place, anError);
}

TEST(StatusTest, SuccessLeavesTheReportAlone) {
  std::optional<Error> place = anError;
  EXPECT_TRUE(Status().reportTo(&place));
  EXPECT_EQ(place, anError);
}

TEST(ResultTest, HasAValueOrAnError) {
  const Result<std::string> value("text");
  ASSERT_TRUE(value);
  EXPECT_EQ(*value, "text");
  EXPECT_EQ(value->size(), 4U);
  const Result<std::string> failure(anError);
  ASSERT_FALSE(failure);
  EXPECT_EQ(failure.error(), anError);
}

TEST(ResultTest, TakesTheErrorOfAFailedOperation) {
  const auto operation = []() -> Result<int> {
    if (Status status = anError; !status) return status;
    return 1;
  };
  const auto result = operation();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error(), anError);
}

TEST(ResultTest, ConvertsWhatConvertsToItsValue) {
  struct Base {
    virtual ~Base() = default;
  };
  struct Derived final : Base {};
  Result<std::unique_ptr<Base>> result = std::make_unique<Derived>();
  ASSERT_TRUE(result);
  const std::unique_ptr<Base> taken = *std::move(result);
  EXPECT_TRUE(taken);
}

TEST(ResultTest, GivesAnotherValueInPlaceOfAnError) {
  EXPECT_EQ(Result<int>(1).value_or(2), 1);
  EXPECT_EQ(Result<int>(anError).value_or(2), 2);
  EXPECT_EQ(Result<int>(1).toOptional(), 1);
  EXPECT_EQ(Result<int>(anError).toOptional(), std::nullopt);
}

TEST(ResultTest, AnErrorIsReportedIfOneIsAskedFor) {
  EXPECT_EQ(Result<int>(anError).reportTo(nullptr), std::nullopt);
  std::optional<Error> place;
  EXPECT_EQ(Result<int>(1).reportTo(&place), 1);
  EXPECT_FALSE(place);
  EXPECT_EQ(Result<int>(anError).reportTo(&place), std::nullopt);
  EXPECT_EQ(place, anError);
}

TEST(ResultTest, EqualsAValueIfItHasThatOne) {
  EXPECT_EQ(Result<int>(1), 1);
  EXPECT_NE(Result<int>(2), 1);
  EXPECT_NE(Result<int>(anError), 1);
}

TEST(ResultTest, ALoopOverATemporaryKeepsWhatItLoopsOver) {
  const auto operation = [] { return Result<std::vector<std::string>>({"a", "b"}); };
  std::string all;
  for (const std::string& item : *operation())
    all += item;
  EXPECT_EQ(all, "ab");
}

}  // namespace
}  // namespace kiv
