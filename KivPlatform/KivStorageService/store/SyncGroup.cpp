// When the first file is written, the number of files in the group is not known yet. So the first
// files stay open until there are enough of them to tell which way is faster. If files are synced
// individually, several of them stay open and are synced together.

#include "KivPlatform/KivStorageService/store/SyncGroup.h"

#include <algorithm>
#include <utility>

namespace kiv::storage {

namespace {

/// So many that a batch sync is faster unless other programs have much dirty data, and few enough
/// not to use up the descriptors of a process.
constexpr std::size_t mostOpenFiles = 64;

}  // namespace

SyncGroup::~SyncGroup() = default;

/// The batch sync begins before the first file is written, since it covers only what is written
/// later.
void SyncGroup::prepare(const std::string& directory) {
  if (std::exchange(isPrepared_, true)) return;
  batch_ = FileManager::defaultManager().beginBatchSyncAtPath(directory);
}

std::size_t SyncGroup::add(std::unique_ptr<WritableFile> file) {
  const std::size_t number = isComplete_.size();
  isComplete_.push_back(false);
  if (usesBatch_) {
    isComplete_[number] = static_cast<bool>(file->close());
    return number;
  }
  open_.push_back({number, std::move(file)});
  if (open_.size() >= mostOpenFiles) closeFiles();
  return number;
}

std::vector<Status> SyncGroup::synchronizeFiles(const std::vector<OpenFile>& files) {
  std::vector<WritableFile*> pointers(files.size());
  std::transform(files.begin(), files.end(), pointers.begin(),
                 [](const OpenFile& open) { return open.file.get(); });
  return FileManager::defaultManager().synchronizeFiles(pointers);
}

/// The first files decide for the later ones.
void SyncGroup::decide() {
  usesBatch_ = batch_ && batch_->pays(open_.size());
  if (!usesBatch_) batch_.reset();
}

bool SyncGroup::closeFiles() {
  if (open_.empty()) return false;
  decide();
  const std::vector<OpenFile> files = std::exchange(open_, {});
  const auto synced = usesBatch_ ? std::vector<Status>(files.size()) : synchronizeFiles(files);
  for (std::size_t index = 0; index < files.size(); ++index) {
    const Status closed = files[index].file->close();
    isComplete_[files[index].number] = synced[index] && closed;
  }
  return true;
}

bool SyncGroup::synchronize(std::size_t number) {
  if (!std::exchange(isSynchronized_, true)) {
    closeFiles();
    isOnDisk_ = !usesBatch_ || batch_->synchronize();
    batch_.reset();
  }
  return isOnDisk_ && isComplete_[number];
}

}  // namespace kiv::storage
