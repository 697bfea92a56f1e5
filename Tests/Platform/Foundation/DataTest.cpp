#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "Platform/Foundation/Data.h"

namespace {

using kiv::Data;

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

}  // namespace
