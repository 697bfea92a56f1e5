#include <cerrno>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/Error.h"

namespace {

using kiv::Dictionary;
using kiv::Error;

TEST(ErrorTest, HoldsExactlyTheMessage) {
  const Error error("kiv.Test", 110, "Data is not array.");
  EXPECT_EQ(error.domain, "kiv.Test");
  EXPECT_EQ(error.code, 110);
  EXPECT_EQ(error.userInfo.size(), 1U);
  EXPECT_EQ(error.userInfo[kiv::LocalizedDescriptionKey].string(), "Data is not array.");
  EXPECT_EQ(error.localizedDescription(), "Data is not array.");
}

TEST(ErrorTest, CodesAreSigned64Bit) {
  EXPECT_EQ(Error("d", INT64_MIN, "m").code, INT64_MIN);
  EXPECT_EQ(Error("d", INT64_MAX, "m").code, INT64_MAX);
}

TEST(ErrorTest, WithoutAMessageTheDescriptionIsEmpty) {
  EXPECT_EQ(Error("d", 1, Dictionary()).localizedDescription(), "");
  EXPECT_EQ(Error("d", 1, Dictionary{{kiv::LocalizedDescriptionKey, 7}}).localizedDescription(),
            "");
}

TEST(ErrorTest, DescriptionNamesDomainCodeAndMessage) {
  EXPECT_EQ(Error("kiv.Test", -5, "No.").description(), "Error Domain=kiv.Test Code=-5 \"No.\"");
}

TEST(ErrorTest, EqualityLooksAtAllThree) {
  const Error error("d", 1, "m");
  EXPECT_EQ(error, Error("d", 1, "m"));
  EXPECT_FALSE(error == Error("e", 1, "m"));
  EXPECT_FALSE(error == Error("d", 2, "m"));
  EXPECT_FALSE(error == Error("d", 1, "n"));
}

TEST(ErrorTest, ASystemErrorIsKnownByItsNumber) {
  EXPECT_TRUE(kiv::isSystemError(kiv::systemError(ENOENT, "read", "a"),
                                 std::errc::no_such_file_or_directory));
  EXPECT_FALSE(kiv::isSystemError(kiv::systemError(EACCES, "read", "a"),
                                  std::errc::no_such_file_or_directory));
  EXPECT_FALSE(kiv::isSystemError(Error("d", ENOENT, "m"), std::errc::no_such_file_or_directory));
}

TEST(ErrorTest, SystemErrorsNameTheOperationThePathAndTheReason) {
  const Error error = kiv::systemError(ENOENT, "read", "/nowhere/a.png");
  EXPECT_EQ(error.domain, kiv::SystemErrorDomain);
  EXPECT_EQ(error.code, ENOENT);
  EXPECT_EQ(error.localizedDescription(),
            "Could not read \"/nowhere/a.png\": No such file or directory.");
}

}  // namespace
