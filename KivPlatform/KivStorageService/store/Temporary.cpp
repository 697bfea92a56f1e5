#include "KivPlatform/KivStorageService/store/Temporary.h"

#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"

namespace kiv::storage {

Temporary::Temporary(std::string path, std::shared_ptr<ProcessDirectory> home)
    : path_(std::move(path)), home_(std::move(home)) {}

Temporary::~Temporary() {
  if (!home_) return;
  FileManager& files = FileManager::defaultManager();
  if (files.itemExistsAtPath(path_)) files.removeItemAtPath(path_);
}

}  // namespace kiv::storage
