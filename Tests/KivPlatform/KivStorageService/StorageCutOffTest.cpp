#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>
#include <utility>

#include <gmock/gmock.h>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"
#include "Tests/Support/ForwardingFileManager.h"
#include "Tests/Support/RemovalGuard.h"

namespace kiv::test {
namespace {

namespace fs = std::filesystem;

/// Calls `interrupt` before a file is created, truncates a file before it is moved, and fails a
/// move as between two file systems.
class InterruptedFileManager : public ForwardingFileManager {
 public:
  Result<std::unique_ptr<WritableFile>> createFileAtPath(std::string_view path) override {
    if (--createsLeft == 0) interrupt();
    return ForwardingFileManager::createFileAtPath(path);
  }
  Status moveItemAtPath_toPath(std::string_view path, std::string_view newPath) override {
    if (path == pathThatStays) return systemError(EXDEV, "move", path);
    if (path == cutBeforeMove) fs::resize_file(fs::path(path), 10);
    return ForwardingFileManager::moveItemAtPath_toPath(path, newPath);
  }

  int createsLeft = 0;
  std::function<void()> interrupt;
  std::string pathThatStays;
  std::string cutBeforeMove;
};

/// Data in a mapped file that another process truncates.
class StorageCutOffTest : public StorageServiceFixture {
 protected:
  StorageCutOffTest() { FileManager::setDefaultManager(&files_); }
  ~StorageCutOffTest() override { FileManager::setDefaultManager(nullptr); }

  Data spooled(std::string_view bytes) {
    put(spoolPath_, bytes);
    return *kiv::fileDataAtPath(spoolPath_);
  }

  static std::optional<Error> saveData(std::string_view name, const Data& data) {
    std::optional<Error> error;
    const bool isSaved =
        KivStorageService::saveData_forFileName_atRelativePath_error(data, name, resources, &error);
    EXPECT_NE(isSaved, error.has_value());
    return error;
  }

  /// The number of items in the service's own directory except the directory and lock of this
  /// process.
  [[nodiscard]] std::size_t leftOver() const {
    std::size_t count = 0;
    for (const auto& [name, bytes] : temporaries()) {
      if (!name.ends_with(".lock") && name.find('/') + 1 != name.size()) ++count;
    }
    return count;
  }

  void cutOff(std::uintmax_t length) const { fs::resize_file(spoolPath_, length); }

  static std::string archive() {
    return ZipBuilder()
        .add({.name = "a.bin", .contents = std::string(300'000, 'a')})
        .add({.name = "b.bin", .contents = std::string(300'000, 'b')})
        .addFile("index.html", "page")
        .build();
  }

  InterruptedFileManager files_;
  const std::string spoolPath_ = scratch_.path("spool/body");
};

TEST_F(StorageCutOffTest, AnArchiveInAFileIsUnpackedAsOneInMemory) {
  const auto error = saveData("promo.zip", spooled(archive()));
  EXPECT_FALSE(error);
  EXPECT_EQ(treeOf(stored("promo")), (Tree{{"a.bin", std::string(300'000, 'a')},
                                           {"b.bin", std::string(300'000, 'b')},
                                           {"index.html", "page"}}));
}

class CutOffArchive : public StorageCutOffTest,
                      public testing::WithParamInterface<std::pair<int, std::uintmax_t>> {};

TEST_P(CutOffArchive, IsRefused) {
  const auto [filesBefore, length] = GetParam();
  const Data data = spooled(archive());
  files_.createsLeft = filesBefore;
  files_.interrupt = [this, left = length] { cutOff(left); };
  if (filesBefore == 0) cutOff(length);
  const auto error = saveData("promo.zip", data);
  ASSERT_TRUE(error);
  EXPECT_THAT(error->localizedDescription(), testing::HasSubstr("promo.zip"));
  EXPECT_EQ(tree(), Tree{});
  EXPECT_EQ(leftOver(), 0U);
}

// Truncated before it is read, and while its first and its last large file are unpacked.
INSTANTIATE_TEST_SUITE_P(All, CutOffArchive,
                         testing::Values(std::pair{0, 0}, std::pair{0, 1}, std::pair{0, 300'000},
                                         std::pair{0, 600'100}, std::pair{1, 0},
                                         std::pair{1, 100'000}, std::pair{2, 0},
                                         std::pair{2, 400'000}),
                         [](const auto& testCase) {
                           return "At" + std::to_string(testCase.param.second) + "AfterFiles" +
                                  std::to_string(testCase.param.first);
                         });

TEST_F(StorageCutOffTest, AnArchiveThatGetsOtherBytesIsRefused) {
  const Data data = spooled(archive());
  files_.createsLeft = 2;
  files_.interrupt = [this] {
    cutOff(300'500);
    cutOff(600'000);  // grown again, with a hole in place of the data
  };
  EXPECT_TRUE(saveData("promo.zip", data));
  EXPECT_EQ(tree(), Tree{});
}

TEST_F(StorageCutOffTest, AFileThatCannotBeMovedIsNotStoredInPart) {
  const Data data = spooled(std::string(900'000, 'x'));
  files_.pathThatStays = spoolPath_;
  files_.createsLeft = 1;
  files_.interrupt = [&] { cutOff(300'000); };
  EXPECT_TRUE(saveData("a.bin", data));
  EXPECT_EQ(tree(), Tree{});
  EXPECT_EQ(leftOver(), 0U);
}

TEST_F(StorageCutOffTest, AFileThatCannotBeMovedIsCopied) {
  const UnguardedRemovals unguarded;
  const std::string bytes(900'000, 'x');
  files_.pathThatStays = spoolPath_;
  EXPECT_FALSE(saveData("a.bin", spooled(bytes)));
  EXPECT_EQ(contents("a.bin"), bytes);
  EXPECT_FALSE(fs::exists(spoolPath_));
}

TEST_F(StorageCutOffTest, AFileThatIsMovedIsNotStoredInPart) {
  files_.cutBeforeMove = spoolPath_;
  EXPECT_TRUE(saveData("a.bin", spooled(std::string(900'000, 'x'))));
  EXPECT_EQ(tree(), Tree{});
  EXPECT_EQ(leftOver(), 0U);
}

}  // namespace
}  // namespace kiv::test
