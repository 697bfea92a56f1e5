#include "KivPlatform/KivStorageService/StorageInUse.h"

#include <utility>

#include "KivPlatform/KivStorageService/store/StorageErrors.h"
#include "KivPlatform/KivStorageService/store/StorageRoot.h"

namespace kiv::storage {

namespace {

constinit thread_local const Storage* inUse = nullptr;

}  // namespace

Result<Storage> Storage::open(const std::string& rootPath, const ArchiveLimits& archiveLimits) {
  auto root = StorageRoot::open(rootPath);
  if (!root) return noRootError();
  return Storage{std::move(root), archiveLimits};
}

StorageInUse::StorageInUse(const Storage* storage) noexcept
    : former_(std::exchange(inUse, storage)) {}

StorageInUse::~StorageInUse() {
  inUse = former_;
}

const Storage* StorageInUse::current() noexcept {
  return inUse;
}

std::shared_ptr<StorageRoot> StorageInUse::root() {
  return inUse ? inUse->root : StorageRoot::current();
}

std::string StorageInUse::rootPath() {
  return inUse ? inUse->root->path() : StorageRoot::currentPath();
}

}  // namespace kiv::storage
