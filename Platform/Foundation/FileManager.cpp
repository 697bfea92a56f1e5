#include "Platform/Foundation/FileManager.h"

#include <atomic>

#include "Platform/Foundation/SystemFileManager.h"

namespace kiv {

namespace {

std::atomic<FileManager*> replacement{nullptr};

}  // namespace

FileManager& FileManager::defaultManager() {
  FileManager* const manager = replacement.load(std::memory_order_acquire);
  return manager ? *manager : systemFileManager();
}

FileManager* FileManager::setDefaultManager(FileManager* manager) {
  return replacement.exchange(manager, std::memory_order_acq_rel);
}

}  // namespace kiv
