// How many files a group will have is not known when the first is written. So the first files stay
// open until there are enough of them to tell which way is faster.

#include "KivPlatform/KivStorageService/store/SyncGroup.h"

#include <utility>

namespace kiv::storage {

namespace {

/// So many that only much dirty data of other programs makes a batch sync slower, and few enough
/// not to use up the descriptors of a process.
constexpr std::size_t mostOpenFiles = 64;

Status synchronizeAndClose(WritableFile& file) {
  if (Status status = file.synchronize(); !status) return status;
  return file.close();
}

}  // namespace

SyncGroup::~SyncGroup() = default;

/// The batch begins before the first file is written, since it covers only what is written later.
void SyncGroup::prepare(const std::string& directory) {
  if (std::exchange(isPrepared_, true)) return;
  batch_ = FileManager::defaultManager().beginBatchSyncAtPath(directory);
}

Status SyncGroup::add(std::unique_ptr<WritableFile> file) {
  if (!batch_) return synchronizeAndClose(*file);
  if (usesBatch_) return file->close();
  open_.push_back(std::move(file));
  if (open_.size() == mostOpenFiles) decide();
  return {};
}

/// Leaves the open files to the batch, or syncs each of them and those to come.
void SyncGroup::decide() {
  usesBatch_ = batch_->pays(open_.size());
  if (!usesBatch_) batch_.reset();
  for (const auto& file : std::exchange(open_, {})) {
    Status status = usesBatch_ ? file->close() : synchronizeAndClose(*file);
    if (!status) failure_ = std::move(status).error();
  }
}

bool SyncGroup::closeFiles() {
  if (open_.empty()) return false;
  decide();
  return true;
}

Status SyncGroup::synchronize() {
  if (!std::exchange(isSynchronized_, true)) {
    closeFiles();
    if (usesBatch_) {
      if (Status status = batch_->synchronize(); !status) failure_ = std::move(status).error();
    }
    batch_.reset();
  }
  return failure_ ? Status(*failure_) : Status();
}

}  // namespace kiv::storage
