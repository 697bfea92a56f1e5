// The bound on how much of an archive's central directory is read, whatever size it declares.

#include <atomic>
#include <memory>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"
#include "Tests/Support/ForwardingFileManager.h"

namespace kiv::test {
namespace {

/// Counts the bytes that are read from mapped files.
class CountingFileManager final : public ForwardingFileManager {
 public:
  Result<std::unique_ptr<MappedFile>> mapFileAtPath(std::string_view path) override {
    auto file = ForwardingFileManager::mapFileAtPath(path);
    if (!file) return file;
    return std::make_unique<CountingFile>(*std::move(file), bytesRead);
  }

  std::atomic<std::uint64_t> bytesRead = 0;

 private:
  class CountingFile final : public MappedFile {
   public:
    CountingFile(std::unique_ptr<MappedFile> file, std::atomic<std::uint64_t>& count)
        : file_(std::move(file)), count_(count) {}
    [[nodiscard]] std::string_view bytes() const noexcept override { return file_->bytes(); }
    Status copyBytes(std::uint64_t offset, char* to, std::size_t count) const override {
      count_ += count;
      return file_->copyBytes(offset, to, count);
    }

   private:
    std::unique_ptr<MappedFile> file_;
    std::atomic<std::uint64_t>& count_;
  };
};

class ArchiveListBoundTest : public StorageServiceFixture {
 protected:
  /// Saves an archive from a mapped file and returns the error's message.
  std::string messageOfSaving(const std::string& archive) {
    put(scratch_.path("archive"), archive);
    std::optional<Error> error;
    KivStorageService::saveData_forFileName_atRelativePath_error(
        *kiv::fileDataAtPath(scratch_.path("archive")), "promo.zip", resources, &error);
    return error ? error->localizedDescription() : "";
  }

  /// An archive of empty entries with about `bytesForEach` bytes each in the central directory.
  static ZipBuilder archiveWithList(std::size_t entries, std::size_t bytesForEach) {
    ZipBuilder archive;
    archive.addFile("index.html", "page");
    for (std::size_t index = 1; index < entries; ++index)
      archive.add({.name = std::to_string(index) + std::string(bytesForEach - 50, 'n')});
    return archive;
  }

  CountingFileManager manager_;
};

constexpr std::uint64_t littleMoreThanTheTail = 100'000;

TEST_F(ArchiveListBoundTest, AListBeyondTheBoundIsRefusedUnread) {
  EXPECT_EQ(messageOfSaving(archiveWithList(9'000, 1'000).build()),
            "The archive \"promo.zip\" has a list of entries of more than 8388608 bytes.");
  EXPECT_LT(manager_.bytesRead, littleMoreThanTheTail);
}

TEST_F(ArchiveListBoundTest, TheBoundHoldsForLargeArchivesToo) {
  auto archive = archiveWithList(9'000, 1'000);
  archive.zip64End = true;
  EXPECT_EQ(messageOfSaving(archive.build()),
            "The archive \"promo.zip\" has a list of entries of more than 8388608 bytes.");
  EXPECT_LT(manager_.bytesRead, littleMoreThanTheTail);
}

TEST_F(ArchiveListBoundTest, AListWithinTheBoundIsRead) {
  EXPECT_EQ(messageOfSaving(archiveWithList(9'000, 250).build()), "");
}

TEST_F(ArchiveListBoundTest, ALongListBehindASecondEndRecordIsNotRead) {
  // The comment of a large archive contains the remaining part of a small one.
  auto large = archiveWithList(9'000, 1'000);
  const std::uint64_t start = large.build().size();
  ZipBuilder small;
  small.add({.name = "index.html", .headerOffset = start});
  small.listOffset = start + 30 + 10;
  large.comment = small.build();
  EXPECT_EQ(messageOfSaving(large.build()),
            "The archive \"promo.zip\" has two end records, and with them two lists of entries.");
  EXPECT_LT(manager_.bytesRead, littleMoreThanTheTail);
}

TEST_F(ArchiveListBoundTest, AnArchiveInACommentThatGoesOnIsNoEndRecord) {
  auto archive = archiveWithList(2, 100);
  archive.comment = archiveWithList(2, 100).build() + " and more";
  EXPECT_EQ(messageOfSaving(archive.build()), "");
}

}  // namespace
}  // namespace kiv::test
