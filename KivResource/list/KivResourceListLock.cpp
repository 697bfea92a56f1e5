#include "KivResource/list/KivResourceListLock.h"

#include <system_error>
#include <thread>
#include <utility>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivResource/KivResourceStorageModule.h"

namespace kiv {

namespace {

constexpr std::string_view suffix = ".lock";

}  // namespace

std::string ListLock::path() {
  std::string list = KivResourceStorageModule::resourcesListPath();
  return list.empty() ? list : list.append(suffix);
}

bool ListLock::isHeldByAnother(const Taken& lock) {
  return !lock && isSystemError(lock.error(), std::errc::resource_unavailable_try_again);
}

ListLock::Taken ListLock::take() {
  const std::string file = path();
  if (file.empty()) return nullptr;
  FileManager& files = FileManager::defaultManager();
  const auto deadline = std::chrono::steady_clock::now() + patience_;
  auto lock = files.lockFileAtPath(file);
  if (!lock && isSystemError(lock.error(), std::errc::no_such_file_or_directory)) {
    // If this fails, the lock fails too, with the reason.
    static_cast<void>(files.createDirectoryAtPath(path::deletingLastPathComponent(file)));
    lock = files.lockFileAtPath(file);
  }
  while (isHeldByAnother(lock) && isPatient_ && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    lock = files.lockFileAtPath(file);
  }
  isPatient_ = !isHeldByAnother(lock);
  if (!isPatient_) return lock.error();
  return std::move(lock).value_or(nullptr);
}

}  // namespace kiv
