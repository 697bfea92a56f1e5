// Syncs twenty files together again and again. The first time the first allocation fails, then the
// second one and so on, among them those for starting threads, until the files are synced with
// fewer allocations. Each time either the call throws or all files are synced. Run by
// ParallelSyncTest.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <new>
#include <thread>
#include <vector>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "Tests/Support/FailingMemory.h"

namespace {

using kiv::test::allocationsLeft;

class SlowFile final : public kiv::WritableFile {
 public:
  kiv::Status write(std::string_view /*bytes*/) override { return {}; }
  kiv::Status synchronize() override {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1);
    while (std::chrono::steady_clock::now() < end) {
    }
    ++syncs;
    return {};
  }
  kiv::Status close() override { return {}; }

  int syncs = 0;
};

/// The number of syncs that ended without an exception, or -1 if a file was not synced once.
int synchronizeUntilMemorySuffices() {
  constexpr std::size_t count = 20;
  kiv::FileManager& manager = kiv::FileManager::defaultManager();
  int whole = 0;
  for (long failing = 0;; ++failing) {
    std::vector<SlowFile> files(count);
    std::vector<kiv::WritableFile*> pointers;
    for (SlowFile& file : files)
      pointers.push_back(&file);
    allocationsLeft = failing;
    try {
      const auto results = manager.synchronizeFiles(pointers);
      ++whole;
      for (const SlowFile& file : files) {
        if (file.syncs != 1 || results.size() != count) return -1;
      }
    } catch (const std::bad_alloc&) {
    }
    const bool isOver = allocationsLeft >= 0;
    allocationsLeft = -1;
    if (isOver) return whole;
  }
}

}  // namespace

int main() {
  int whole = 0;
  std::thread([&] { whole = synchronizeUntilMemorySuffices(); }).join();
  // Each of the fifteen threads could not be started once.
  constexpr int threads = 15;
  if (whole > threads) return 0;
  std::fprintf(stderr, "%d syncs have ended well\n", whole);
  return 1;
}
