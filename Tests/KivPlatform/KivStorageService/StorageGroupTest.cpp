// Saves that are staged in a batch: their contents share one wait for the disk.

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"
#include "Tests/Support/FaultyFileManager.h"

namespace kiv::test {
namespace {

using Batch = KivStorageService::Batch;
using StagedFile = KivStorageService::StagedFile;

class StorageGroupTest : public StorageServiceFixture {
 protected:
  StorageGroupTest() { files_.allowBatchSyncs(true); }

  static std::optional<StagedFile> stage(Batch& batch, std::string_view name,
                                         std::string_view bytes,
                                         std::optional<Error>* error = nullptr) {
    return batch.stage(Data(std::string(bytes)), name, resources, error);
  }

  [[nodiscard]] std::ptrdiff_t count(FileOperation kind) const {
    const auto operations = files_.operations();
    return std::count_if(operations.begin(), operations.end(),
                         [&](const auto& operation) { return operation.kind == kind; });
  }

  /// The kinds of the operations so far, in their order.
  [[nodiscard]] std::vector<FileOperation> kinds() const {
    std::vector<FileOperation> kinds;
    for (const auto& operation : files_.operations())
      kinds.push_back(operation.kind);
    return kinds;
  }

  /// Stages and commits that many files, named by their numbers. Returns the errors of the commits.
  std::vector<std::optional<Error>> saveGroup(std::size_t count, std::string_view bytes) {
    Batch batch;
    std::vector<std::optional<StagedFile>> staged;
    for (std::size_t index = 0; index < count; ++index)
      staged.push_back(stage(batch, std::to_string(index), bytes));
    std::vector<std::optional<Error>> errors(count);
    for (std::size_t index = 0; index < count; ++index) {
      if (staged[index]) staged[index]->commit(&errors[index]);
    }
    return errors;
  }

  FaultyFileManager files_;
};

TEST_F(StorageGroupTest, AStagedFileHasItsNameOnlyAfterTheCommit) {
  Batch batch;
  auto staged = stage(batch, "a.png", "new");
  ASSERT_TRUE(staged);
  EXPECT_EQ(contents("a.png"), std::nullopt);
  EXPECT_TRUE(staged->commit());
  EXPECT_EQ(contents("a.png"), "new");
}

TEST_F(StorageGroupTest, WithoutACommitNothingIsLeft) {
  ASSERT_FALSE(save("a.png", "old"));
  {
    Batch batch;
    ASSERT_TRUE(stage(batch, "a.png", "new"));
    const auto archive = stage(batch, "promo.zip", pageArchive("new"));
    ASSERT_TRUE(archive);
  }
  EXPECT_EQ(contents("a.png"), "old");
  restart();
  EXPECT_EQ(temporaries(), Tree{});
  EXPECT_EQ(treeOf(stored("")), (Tree{{"a.png", "old"}}));
}

TEST_F(StorageGroupTest, ASecondCommitDoesNothing) {
  Batch batch;
  auto staged = stage(batch, "a.png", "new");
  ASSERT_TRUE(staged);
  EXPECT_TRUE(staged->commit());
  EXPECT_FALSE(staged->commit());
  EXPECT_EQ(contents("a.png"), "new");
}

TEST_F(StorageGroupTest, AGroupWaitsOnceBeforeTheFirstFileHasItsName) {
  ASSERT_FALSE(save("x", "x"));  // makes the directories
  files_.setFault(std::nullopt);
  for (const auto& error : saveGroup(100, "bytes"))
    EXPECT_FALSE(error);
  EXPECT_EQ(count(FileOperation::synchronizeBatch), 1);
  EXPECT_EQ(count(FileOperation::synchronize), 0);
  EXPECT_EQ(count(FileOperation::synchronizeDirectory), 1);
  const auto order = kinds();
  const auto sync = std::find(order.begin(), order.end(), FileOperation::synchronizeBatch);
  EXPECT_EQ(std::find(order.begin(), sync, FileOperation::move), sync);
  EXPECT_EQ(std::find(sync, order.end(), FileOperation::write), order.end());
}

TEST_F(StorageGroupTest, WithoutBatchSyncsTheFilesAreSyncedTogether) {
  files_.allowBatchSyncs(false);
  ASSERT_FALSE(save("x", "x"));
  files_.setFault(std::nullopt);
  for (const auto& error : saveGroup(40, "bytes"))
    EXPECT_FALSE(error);
  EXPECT_EQ(count(FileOperation::synchronize), 40);
  EXPECT_EQ(count(FileOperation::synchronizeDirectory), 1);
  const auto order = kinds();
  const auto sync = std::find(order.begin(), order.end(), FileOperation::synchronize);
  EXPECT_EQ(std::find(sync, order.end(), FileOperation::write), order.end());
  const auto move = std::find(sync, order.end(), FileOperation::move);
  EXPECT_EQ(std::find(order.begin(), sync, FileOperation::move), sync);
  EXPECT_EQ(std::find(move, order.end(), FileOperation::synchronize), order.end());
  EXPECT_EQ(contents("39"), "bytes");
}

TEST_F(StorageGroupTest, WithoutBatchSyncsNoMoreThan64FilesAreOpen) {
  files_.allowBatchSyncs(false);
  Batch batch;
  std::vector<std::optional<StagedFile>> staged;
  for (int index = 0; index < 150; ++index) {
    staged.push_back(stage(batch, std::to_string(index), "bytes"));
    ASSERT_TRUE(staged.back());
    EXPECT_LE(count(FileOperation::createFile) - count(FileOperation::close), 64) << index;
  }
  EXPECT_EQ(count(FileOperation::synchronize), 128);
  for (auto& file : staged)
    EXPECT_TRUE(file->commit());
}

TEST_F(StorageGroupTest, WithoutBatchSyncsOnlyTheFileWhoseSyncFailsIsWrittenAgain) {
  files_.allowBatchSyncs(false);
  Batch batch;
  std::vector<std::optional<StagedFile>> staged;
  for (int index = 0; index < 40; ++index)
    staged.push_back(stage(batch, std::to_string(index), "bytes"));
  files_.setFault(FaultyFileManager::Fault{.at = 7, .number = EIO});
  for (auto& file : staged)
    EXPECT_TRUE(file && file->commit());
  EXPECT_EQ(count(FileOperation::synchronize), 41);
  EXPECT_EQ(count(FileOperation::write), 1);
  EXPECT_EQ(contents("6"), "bytes");
}

TEST_F(StorageGroupTest, AFileThatCannotBeSyncedFailsWithItsError) {
  files_.allowBatchSyncs(false);
  files_.setFailingOperation(FileOperation::synchronize, EDQUOT);
  for (const auto& error : saveGroup(3, "bytes"))
    EXPECT_TRUE(error && error->code == EDQUOT);
  files_.clearFailingOperation();
  EXPECT_EQ(treeOf(stored("")), Tree{});
}

TEST_F(StorageGroupTest, AFileThatIsStagedAfterACommitHasAWaitOfItsOwn) {
  Batch batch;
  auto first = stage(batch, "a.png", "a");
  ASSERT_TRUE(first && first->commit());
  auto second = stage(batch, "b.png", "b");
  ASSERT_TRUE(second && second->commit());
  EXPECT_EQ(count(FileOperation::synchronizeBatch), 2);
}

TEST_F(StorageGroupTest, IfTheWaitFailsEachFileIsWrittenAndSyncedByItself) {
  for (const std::size_t size : {std::size_t{3}, std::size_t{100}}) {
    files_.setFault(std::nullopt);
    files_.setFailingOperation(FileOperation::synchronizeBatch, EIO);
    for (const auto& error : saveGroup(size, "bytes " + std::to_string(size)))
      EXPECT_FALSE(error);
    files_.clearFailingOperation();
    EXPECT_EQ(count(FileOperation::synchronize), static_cast<std::ptrdiff_t>(size));
    for (std::size_t index = 0; index < size; ++index)
      EXPECT_EQ(contents(std::to_string(index)), "bytes " + std::to_string(size));
  }
}

class StorageGroupFaultTest : public StorageGroupTest, public testing::WithParamInterface<bool> {
 protected:
  StorageGroupFaultTest() { files_.allowBatchSyncs(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(BatchSyncs, StorageGroupFaultTest, testing::Bool());

TEST_P(StorageGroupFaultTest, OneFileThatTheDiskDoesNotTakeHarmsNoOther) {
  ASSERT_FALSE(save("x", "x"));
  files_.setFault(std::nullopt);
  for (const auto& error : saveGroup(10, "old"))
    ASSERT_FALSE(error);
  const std::uint64_t most = files_.count();
  for (std::uint64_t at = 1; at <= most; ++at) {
    files_.setFault(FaultyFileManager::Fault{.at = at, .number = ENOSPC});
    Batch batch;
    std::vector<std::optional<StagedFile>> staged;
    const std::string bytes = "new " + std::to_string(at);
    int failures = 0;
    for (int index = 0; index < 10; ++index)
      staged.push_back(stage(batch, std::to_string(index), bytes));
    for (int index = 0; index < 10; ++index) {
      auto& file = staged[static_cast<std::size_t>(index)];
      const bool isSaved = file && file->commit();
      if (!isSaved) ++failures;
      const auto found = contents(std::to_string(index));
      EXPECT_TRUE(isSaved ? found == bytes : found != std::nullopt) << at << " " << index;
    }
    EXPECT_LE(failures, 1) << "operation " << at;
  }
}

TEST_P(StorageGroupFaultTest, WithoutDescriptorsTheFilesOfTheGroupAreClosed) {
  ASSERT_FALSE(save("x", "x"));
  for (const int number : {EMFILE, ENFILE}) {
    files_.setFault(std::nullopt);
    Batch batch;
    auto first = stage(batch, "a.png", "a");
    auto second = stage(batch, "b.png", "b");
    files_.setFault(FaultyFileManager::Fault{.at = 1, .number = number});  // createFile
    std::optional<Error> error;
    auto third = stage(batch, "c.png", "c", &error);
    EXPECT_FALSE(error);
    ASSERT_TRUE(first && second && third);
    EXPECT_TRUE(first->commit() && second->commit() && third->commit());
    EXPECT_EQ(contents("a.png"), "a");
    EXPECT_EQ(contents("c.png"), "c");
  }
  files_.setFailingOperation(FileOperation::createFile, EMFILE);
  Batch batch;
  EXPECT_FALSE(stage(batch, "d.png", "d"));
}

TEST_F(StorageGroupTest, ErrorsAreThoseOfASave) {
  std::optional<Error> error;
  Batch batch;
  EXPECT_FALSE(stage(batch, "../a", "x", &error));
  EXPECT_EQ(error, save("../a", "x"));
  EXPECT_FALSE(stage(batch, "promo.zip", "no archive", &error));
  EXPECT_EQ(error, save("promo.zip", "no archive"));
  put(stored("taken/file"), "x");
  auto staged = stage(batch, "taken", "x");
  ASSERT_TRUE(staged);
  EXPECT_FALSE(staged->commit(&error));
  EXPECT_EQ(error, save("taken", "x"));
  KivStorageService::setRootPath("");
  Batch without;
  EXPECT_FALSE(stage(without, "a.png", "x", &error));
  EXPECT_EQ(error, save("a.png", "x"));
}

TEST_F(StorageGroupTest, TheLastOfTwoFilesWithOneNameStays) {
  Batch batch;
  auto first = stage(batch, "a.png", "first");
  auto second = stage(batch, "a.png", "second");
  ASSERT_TRUE(first && second);
  EXPECT_TRUE(first->commit());
  EXPECT_TRUE(second->commit());
  EXPECT_EQ(contents("a.png"), "second");
}

TEST_F(StorageGroupTest, AnArchiveIsStagedBesideFiles) {
  Batch batch;
  auto archive = stage(batch, "promo.zip", pageArchive("new"));
  auto file = stage(batch, "a.png", "a");
  ASSERT_TRUE(archive && file);
  EXPECT_EQ(treeOf(stored("")), Tree{});
  EXPECT_TRUE(file->commit());
  EXPECT_TRUE(archive->commit());
  Tree expected = pageTree("new");
  expected["a.png"] = "a";
  EXPECT_EQ(treeOf(stored("")), expected);
}

}  // namespace
}  // namespace kiv::test
