#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace kiv::test {
namespace {

/// The system's file manager does not care whose files it syncs.
class FakeFile final : public WritableFile {
 public:
  explicit FakeFile(std::function<Status()> sync) : sync_(std::move(sync)) {}

  Status write(std::string_view /*bytes*/) override { return {}; }
  Status synchronize() override {
    ++syncs;
    thread = std::this_thread::get_id();
    return sync_();
  }
  Status close() override { return {}; }

  int syncs = 0;
  std::thread::id thread;

 private:
  std::function<Status()> sync_;
};

/// So long that threads are worth starting.
Status synchronizeSlowly() {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1);
  while (std::chrono::steady_clock::now() < end) {
  }
  return {};
}

class ParallelSyncTest : public testing::Test {
 protected:
  void addFiles(std::size_t count, const std::function<Status()>& sync) {
    for (std::size_t index = 0; index < count; ++index)
      files_.push_back(std::make_unique<FakeFile>(sync));
  }

  std::vector<Status> synchronize() {
    std::vector<WritableFile*> pointers;
    for (const auto& file : files_)
      pointers.push_back(file.get());
    return FileManager::defaultManager().synchronizeFiles(pointers);
  }

  void expectEachSyncedOnce() const {
    for (const auto& file : files_)
      EXPECT_EQ(file->syncs, 1);
  }

  std::vector<std::unique_ptr<FakeFile>> files_;
};

TEST_F(ParallelSyncTest, NoFileIsNothingToDo) {
  EXPECT_TRUE(synchronize().empty());
}

TEST_F(ParallelSyncTest, EachFileIsSyncedOnceAndHasItsOwnResult) {
  constexpr std::size_t bad = 7;
  addFiles(bad, synchronizeSlowly);
  addFiles(1, [] { return Status(systemError(EIO, "synchronize", "bad")); });
  addFiles(40, synchronizeSlowly);
  const auto results = synchronize();
  ASSERT_EQ(results.size(), files_.size());
  for (std::size_t index = 0; index < results.size(); ++index)
    EXPECT_EQ(static_cast<bool>(results[index]), index != bad) << index;
  expectEachSyncedOnce();
}

TEST_F(ParallelSyncTest, OneOrTwoFilesAreSyncedOnTheCallingThread) {
  addFiles(2, synchronizeSlowly);
  EXPECT_EQ(synchronize().size(), 2U);
  expectEachSyncedOnce();
  for (const auto& file : files_)
    EXPECT_EQ(file->thread, std::this_thread::get_id());
}

TEST_F(ParallelSyncTest, SixteenSlowSyncsAreInFlightTogether) {
  constexpr int together = 16;
  std::mutex mutex;
  std::condition_variable changed;
  int inFlight = 0;
  addFiles(1, synchronizeSlowly);
  addFiles(together, [&]() -> Status {
    std::unique_lock guard(mutex);
    ++inFlight;
    changed.notify_all();
    const bool cameAll =
        changed.wait_for(guard, std::chrono::seconds(30), [&] { return inFlight == together; });
    if (cameAll) return {};
    return systemError(ETIMEDOUT, "wait for the others of", "the group");
  });
  for (const Status& status : synchronize())
    EXPECT_TRUE(status);
  expectEachSyncedOnce();
}

TEST_F(ParallelSyncTest, WhatAFileThrowsComesAfterTheOthersAreSynced) {
  addFiles(1, synchronizeSlowly);
  addFiles(20, []() -> Status { throw std::bad_alloc(); });
  addFiles(20, synchronizeSlowly);
  EXPECT_THROW(synchronize(), std::bad_alloc);
  expectEachSyncedOnce();
}

TEST_F(ParallelSyncTest, FilesOfTheDiskAreSynced) {
  const TemporaryDirectory scratch;
  FileManager& manager = FileManager::defaultManager();
  std::vector<std::unique_ptr<WritableFile>> files;
  std::vector<WritableFile*> pointers;
  for (int index = 0; index < 40; ++index) {
    auto file = manager.createFileAtPath(scratch.path(std::to_string(index)));
    ASSERT_TRUE(file && (*file)->write("bytes"));
    pointers.push_back(files.emplace_back(*std::move(file)).get());
  }
  for (const Status& status : manager.synchronizeFiles(pointers))
    EXPECT_TRUE(status);
  for (const auto& file : files)
    EXPECT_TRUE(file->close());
}

TEST_F(ParallelSyncTest, WithoutMemoryForThreadsTheOthersDoTheWork) {
  ChildProcess child(FAILING_SYNCS, {},
                     // The program replaces operator new by one that uses malloc().
                     {"ASAN_OPTIONS=detect_leaks=0:alloc_dealloc_mismatch=0"});
  ASSERT_TRUE(child.hasStarted());
  EXPECT_EQ(child.waitForExit(), 0);
}

}  // namespace
}  // namespace kiv::test
