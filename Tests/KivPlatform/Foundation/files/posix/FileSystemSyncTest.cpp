#include <gtest/gtest.h>

#include "KivPlatform/Foundation/files/posix/FileSystemSync.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace kiv::test {
namespace {

// The effect of a sync is visible only after a power cut, and whether syncfs() is used depends on
// the file system and on the dirty data of other programs. So these tests check only what always
// holds.

TEST(FileSystemSyncTest, ASyncOfManyFilesSucceedsWhereThereIsOne) {
  const TemporaryDirectory scratch;
  const auto batch = beginFileSystemSync(scratch.path());
  const bool isAvailable = batch != nullptr;
  RecordProperty("isAvailable", isAvailable);
  scratch.write("a");
  // So many that it is faster, however much dirty data the machine has.
  EXPECT_TRUE(!batch || batch->pays(SIZE_MAX));
  EXPECT_TRUE(!batch || batch->synchronize());
  EXPECT_EQ(beginFileSystemSync(scratch.path()) != nullptr, isAvailable);
}

TEST(FileSystemSyncTest, AFewFilesAreSyncedOneByOne) {
  const TemporaryDirectory scratch;
  const auto batch = beginFileSystemSync(scratch.path());
  EXPECT_FALSE(batch && batch->pays(1));
}

TEST(FileSystemSyncTest, NothingButADirectoryIsSynced) {
  const TemporaryDirectory scratch;
  EXPECT_EQ(beginFileSystemSync(scratch.path("missing")), nullptr);
  EXPECT_EQ(beginFileSystemSync(scratch.write("file")), nullptr);
  EXPECT_EQ(beginFileSystemSync(scratch.path() + std::string("\0x", 2)), nullptr);
}

TEST(FileSystemSyncTest, AFileSystemThatHasNoDiskIsSyncedFileByFile) {
  EXPECT_EQ(beginFileSystemSync("/proc"), nullptr);
}

}  // namespace
}  // namespace kiv::test

namespace kiv::batchsync {
namespace {

constexpr std::uint64_t mebibyte = 1024 * 1024;

TEST(BatchSyncRuleTest, AFewFilesNeverPay) {
  EXPECT_FALSE(pays(0, 0));
  EXPECT_FALSE(pays(7, 0));
  EXPECT_TRUE(pays(8, 0));
}

TEST(BatchSyncRuleTest, MoreFilesPayForMoreThatOthersHaveWritten) {
  EXPECT_TRUE(pays(8, 32 * mebibyte - 1));
  EXPECT_FALSE(pays(8, 32 * mebibyte));
  EXPECT_TRUE(pays(1000, 3999 * mebibyte));
  EXPECT_FALSE(pays(1000, 4000 * mebibyte));
  EXPECT_FALSE(pays(1'000'000, UINT64_MAX));
}

TEST(BatchSyncRuleTest, OnlyKernelsFrom5point8ReportWriteErrors) {
  for (const char* const release : {"5.8", "5.8.0", "5.10.0-28-amd64", "6.1.0", "6.18.44", "10.0"})
    EXPECT_TRUE(reportsWriteErrors(release)) << release;
  for (const char* const release :
       {"5.7.19", "4.19.0-26-amd64", "3.10", "", "x", "6", "6.", "6-1", ".8", "-6.1", " 6.1"})
    EXPECT_FALSE(reportsWriteErrors(release)) << release;
}

TEST(BatchSyncRuleTest, WhatIsNotWrittenYetIsReadFromTheMemoryInformation) {
  EXPECT_EQ(unwrittenBytes("MemTotal: 24 kB\nDirty:               120 kB\nWriteback: 7 kB\n"),
            120U * 1024);
  EXPECT_EQ(unwrittenBytes("MemTotal: 24 kB\nDirty: 0 kB\n"), 0U);
}

TEST(BatchSyncRuleTest, MemoryInformationOfAnotherFormSaysNothing) {
  for (const char* const text :
       {"", "MemTotal: 24 kB\n",
        "MemTotal: 24 kB\nDirty:", "MemTotal: 24 kB\nDirty:     ", "MemTotal: 24 kB\nDirty: x kB\n",
        "MemTotal: 24 kB\nDirty: -1 kB\n", "MemTotal: 24 kB\nDirty: 12 MB\n",
        "MemTotal: 24 kB\nDirty: 12", "MemTotal: 24 kB\nDirty: 18446744073709551615 kB\n",
        "MemTotal: 24 kB\nDirty: 99999999999999999999 kB\n", "MemTotal: 24 kB\nNotDirty: 1 kB\n"})
    EXPECT_EQ(unwrittenBytes(text), std::nullopt) << text;
}

}  // namespace
}  // namespace kiv::batchsync
