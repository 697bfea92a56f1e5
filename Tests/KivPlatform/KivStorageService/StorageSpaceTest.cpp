#include <gmock/gmock.h>

#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"
#include "Tests/Support/FaultyFileManager.h"

namespace kiv::test {
namespace {

using testing::HasSubstr;

constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20;

/// A test that sets the free space of the disk.
class StorageSpaceTest : public StorageServiceFixture {
 protected:
  void expectNoSpace(const std::optional<Error>& error, std::uint64_t needed, std::uint64_t free) {
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, KivStorageServiceErrorDomain);
    EXPECT_EQ(error->code, static_cast<int>(KivStorageServiceErrorCode::noSpace));
    EXPECT_THAT(error->localizedDescription(), HasSubstr(std::to_string(needed) + " bytes"));
    EXPECT_THAT(error->localizedDescription(), HasSubstr(std::to_string(free) + " are free"));
  }

  /// True if a file was created since the last call of setFault().
  [[nodiscard]] bool createdAFile() const {
    const auto operations = files_.operations();
    return std::any_of(operations.begin(), operations.end(), [](const auto& operation) {
      return operation.kind == FileOperation::createFile;
    });
  }

  FaultyFileManager files_;
};

TEST_F(StorageSpaceTest, AFileThatDoesNotFitIsRefusedBeforeAnythingIsWritten) {
  files_.setAvailableSpace(500);
  expectNoSpace(save("a.png", std::string(1000, 'x')), 1000, 500);
  EXPECT_EQ(files_.count(), 0U);
  EXPECT_EQ(tree(), Tree{});
  EXPECT_EQ(temporaries(), Tree{});
}

TEST_F(StorageSpaceTest, TheMessageNamesTheFile) {
  files_.setAvailableSpace(0);
  const auto error = save("a.png", "x");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->localizedDescription(),
            "The disk has no room for the file \"a.png\": it needs 1 bytes and a reserve of 1, and "
            "0 are free.");
}

TEST_F(StorageSpaceTest, TheOldVersionStaysWhereTheNewOneDoesNotFit) {
  EXPECT_FALSE(save("a.png", "old"));
  EXPECT_FALSE(save("promo.zip", pageArchive("old")));
  const Tree before = tree();
  files_.setAvailableSpace(10);
  EXPECT_TRUE(save("a.png", "a new version"));
  EXPECT_TRUE(save("promo.zip", pageArchive("new")));
  EXPECT_EQ(tree(), before);
}

TEST_F(StorageSpaceTest, AsMuchAgainStaysFreeBesideASmallFile) {
  files_.setAvailableSpace(1999);
  expectNoSpace(save("a.png", std::string(1000, 'x')), 1000, 1999);
  files_.setAvailableSpace(2000);
  EXPECT_FALSE(save("a.png", std::string(1000, 'x')));
}

TEST_F(StorageSpaceTest, NoMoreThanAMebibyteStaysFreeBesideALargeFile) {
  const std::uint64_t size = 3 * mebibyte;
  files_.setAvailableSpace(size + mebibyte - 1);
  expectNoSpace(save("a.mp4", std::string(size, 'x')), size, size + mebibyte - 1);
  files_.setAvailableSpace(size + mebibyte);
  EXPECT_FALSE(save("a.mp4", std::string(size, 'x')));
}

TEST_F(StorageSpaceTest, AFileWithoutBytesFitsOnAFullDisk) {
  files_.setAvailableSpace(0);
  EXPECT_FALSE(save("a.png", ""));
}

TEST_F(StorageSpaceTest, AnArchiveNeedsWhatItUnpacksTo) {
  const std::string page(500'000, 'x');  // compresses well: the archive itself would fit
  const std::string archive = ZipBuilder()
                                  .addFile("index.html", page)
                                  .addFile("a/more.html", page)
                                  .addDirectory("empty/")
                                  .build();
  ASSERT_LT(archive.size(), 100'000U);
  files_.setFault(std::nullopt);
  files_.setAvailableSpace(1'100'000);
  expectNoSpace(save("promo.zip", archive), 1'000'000, 1'100'000);
  EXPECT_FALSE(createdAFile());
  EXPECT_EQ(tree(), Tree{});
  files_.setAvailableSpace(2'000'000);
  EXPECT_FALSE(save("promo.zip", archive));
  EXPECT_EQ(contents("promo/a/more.html"), page);
}

// --- A batch queries the free space less often ---

TEST_F(StorageSpaceTest, TheFilesOfABatchFillTheRoomThatWasFound) {
  const std::string file(mebibyte / 2, 'x');
  files_.setAvailableSpace(4 * mebibyte);
  KivStorageService::Batch batch;
  EXPECT_FALSE(save("1.png", file));
  // The loss of free space to another program is detected late, but while 1 MiB is still free.
  files_.setAvailableSpace(0);
  int stored = 1;
  while (stored < 10 && !save(std::to_string(stored + 1) + ".png", file))
    ++stored;
  EXPECT_EQ(stored, 5) << "3.5 MiB were left, of which 1 MiB stays free";
}

TEST_F(StorageSpaceTest, AnArchiveInABatchAsksAnewAndSoDoTheFilesAfterIt) {
  files_.setAvailableSpace(1000 * mebibyte);
  KivStorageService::Batch batch;
  EXPECT_FALSE(save("a.png", "x"));
  files_.setAvailableSpace(10);
  EXPECT_TRUE(save("promo.zip", pageArchive("new")));
  expectNoSpace(save("b.png", std::string(1000, 'x')), 1000, 10);
}

TEST_F(StorageSpaceTest, TheNextBatchAsksAnew) {
  files_.setAvailableSpace(1000 * mebibyte);
  {
    KivStorageService::Batch batch;
    EXPECT_FALSE(save("a.png", "x"));
  }
  files_.setAvailableSpace(10);
  expectNoSpace(save("b.png", std::string(1000, 'x')), 1000, 10);
}

TEST_F(StorageSpaceTest, WithoutABatchEachFileAsks) {
  files_.setAvailableSpace(1000 * mebibyte);
  EXPECT_FALSE(save("a.png", "x"));
  files_.setAvailableSpace(10);
  expectNoSpace(save("b.png", std::string(1000, 'x')), 1000, 10);
}

TEST_F(StorageSpaceTest, WhereTheDiskKeepsNoAccountTheWriteDecides) {
  files_.refuseSpace(true);
  EXPECT_FALSE(save("a.png", "bytes"));
  EXPECT_FALSE(save("promo.zip", pageArchive("new")));
}

}  // namespace
}  // namespace kiv::test
