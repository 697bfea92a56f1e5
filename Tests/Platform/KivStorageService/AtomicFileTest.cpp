#include "Platform/KivStorageService/AtomicFile.h"
#include "Tests/Platform/KivStorageService/StorageServiceFixture.h"

namespace kiv::storage {
namespace {

class AtomicFileTest : public testing::Test {
 protected:
  test::TemporaryDirectory scratch_;
  StorageRoot root_{scratch_.path()};

  [[nodiscard]] std::size_t files() const {
    std::size_t count = 0;
    for (const auto& [path, bytes] : test::treeOf(scratch_.path())) {
      count += !path.ends_with('/') && !path.ends_with(".lock");
    }
    return count;
  }
};

TEST_F(AtomicFileTest, AppearsWhenItIsCommitted) {
  auto file = AtomicFile::create(root_, nullptr);
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->write("one ", nullptr));
  EXPECT_TRUE(file->write("two", nullptr));
  EXPECT_FALSE(test::treeOf(scratch_.path()).contains("a"));
  EXPECT_TRUE(file->commit(scratch_.path("a"), nullptr));
  file.reset();
  EXPECT_EQ(test::treeOf(scratch_.path()).at("a"), "one two");
  EXPECT_EQ(files(), 1U);
}

TEST_F(AtomicFileTest, IsDiscardedWhenItIsNotCommitted) {
  {
    auto file = AtomicFile::create(root_, nullptr);
    ASSERT_TRUE(file && file->write("bytes", nullptr));
    EXPECT_EQ(files(), 1U);
  }
  EXPECT_EQ(files(), 0U);
}

TEST_F(AtomicFileTest, IsDiscardedWhenItCannotBeNamed) {
  std::optional<Error> error;
  {
    auto file = AtomicFile::create(root_, nullptr);
    ASSERT_TRUE(file && file->write("bytes", nullptr));
    EXPECT_FALSE(file->commit(scratch_.path("missing/a"), &error));
  }
  EXPECT_TRUE(error);
  EXPECT_EQ(files(), 0U);
}

}  // namespace
}  // namespace kiv::storage
