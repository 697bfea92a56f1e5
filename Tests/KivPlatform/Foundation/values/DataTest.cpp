#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "Tests/Support/RemovalGuard.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using kiv::Data;

TEST(DataTest, GivesItsBytesBackWithTheLastCopy) {
  std::vector<std::string> released;
  {
    Data copy;
    {
      const Data data("bytes", [&](std::string bytes) { released.push_back(std::move(bytes)); });
      copy = data;
    }
    EXPECT_TRUE(released.empty());
    EXPECT_EQ(copy.view(), "bytes");
  }
  EXPECT_EQ(released, std::vector<std::string>{"bytes"});
}

TEST(DataTest, WithoutBytesIsEmpty) {
  EXPECT_TRUE(Data().empty());
  EXPECT_EQ(Data().size(), 0U);
  EXPECT_EQ(Data().view(), "");
  EXPECT_EQ(Data(), Data(std::string()));
}

TEST(DataTest, HoldsAnyBytes) {
  const std::string bytes("a\0\xff\n", 4);
  const Data data(bytes);
  EXPECT_EQ(data.size(), 4U);
  EXPECT_FALSE(data.empty());
  EXPECT_EQ(data.view(), bytes);
}

TEST(DataTest, CopiesShareOneBufferThatOutlivesTheOriginal) {
  auto original = std::make_unique<Data>(std::string(100000, 'x'));
  const char* const bytes = original->view().data();
  const Data copy = *original;
  original.reset();
  EXPECT_EQ(copy.view().data(), bytes);
  EXPECT_EQ(copy.view(), std::string(100000, 'x'));
}

TEST(DataTest, WhatWasMovedAwayIsEmpty) {
  Data original(std::string("bytes"));
  const Data taken = std::move(original);
  EXPECT_EQ(taken.view(), "bytes");
  EXPECT_TRUE(original.empty());  // NOLINT(bugprone-use-after-move)
}

TEST(DataTest, EqualityLooksAtTheBytes) {
  EXPECT_EQ(Data(std::string("a")), Data(std::string("a")));
  EXPECT_FALSE(Data(std::string("a")) == Data(std::string("b")));
  EXPECT_FALSE(Data(std::string("a")) == Data(std::string("a\0", 2)));
}

// --- Files ---------------------------------------------------------------------------------------

class DataFileTest : public testing::Test {
 protected:
  [[nodiscard]] bool isThere() const { return std::filesystem::exists(path_); }

  kiv::test::TemporaryDirectory directory_;
  const std::string path_ = directory_.write("file", "bytes");
};

TEST_F(DataFileTest, HoldsTheBytesOfTheFile) {
  const auto data = kiv::fileDataAtPath(path_);
  ASSERT_TRUE(data);
  EXPECT_EQ(data->view(), "bytes");
  EXPECT_EQ(*data, Data(std::string("bytes")));
}

TEST_F(DataFileTest, TheFileGoesWithTheLastCopy) {
  const kiv::test::UnguardedRemovals unguarded;
  auto data = kiv::fileDataAtPath(path_).toOptional();
  auto copy = data;
  data.reset();
  EXPECT_TRUE(isThere());
  copy.reset();
  EXPECT_FALSE(isThere());
}

TEST_F(DataFileTest, AFileThatIsTakenIsTheTakers) {
  auto data = kiv::fileDataAtPath(path_).toOptional();
  const auto copy = *data;
  EXPECT_EQ(copy.takeFile(), path_);
  EXPECT_EQ(data->takeFile(), std::nullopt) << "once, of all copies";
  std::filesystem::rename(path_, directory_.path("elsewhere"));
  EXPECT_EQ(data->view(), "bytes");
  data.reset();
  EXPECT_TRUE(std::filesystem::exists(directory_.path("elsewhere")));
}

TEST_F(DataFileTest, TheKeeperGoesWithTheFileOrWhenItIsTaken) {
  auto keeper = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = keeper;
  auto data = kiv::fileDataAtPath(path_, std::move(keeper)).toOptional();
  EXPECT_FALSE(watched.expired());
  (void)data->takeFile();
  EXPECT_TRUE(watched.expired());

  keeper = std::make_shared<int>(2);
  const std::weak_ptr<int> other = keeper;
  data = kiv::fileDataAtPath(path_, std::move(keeper)).toOptional();
  data.reset();
  EXPECT_TRUE(other.expired());
}

TEST_F(DataFileTest, AnEmptyFileHasNoBytes) {
  const auto empty = kiv::fileDataAtPath(directory_.write("empty", ""));
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->empty());
}

TEST_F(DataFileTest, WhatCannotBeMappedIsLeftAlone) {
  EXPECT_FALSE(kiv::fileDataAtPath(directory_.path("missing")));
  EXPECT_FALSE(kiv::fileDataAtPath(directory_.path()));
  EXPECT_TRUE(std::filesystem::exists(directory_.path()));
}

TEST_F(DataFileTest, BytesInMemoryHaveNoFile) {
  EXPECT_EQ(Data(std::string("x")).takeFile(), std::nullopt);
  EXPECT_EQ(Data().takeFile(), std::nullopt);
}

}  // namespace
