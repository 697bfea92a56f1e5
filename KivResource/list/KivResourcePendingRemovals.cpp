// The files of a replaced version are removed only after a list without them is on disk; otherwise
// a host that is killed in between would restore resources without files. Until then a pass must
// behave as if they were removed: these functions tell when the difference would be visible.

#include "KivResource/list/KivResourcePendingRemovals.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/text/Unicode.h"
#include "KivResource/KivResourceObject.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/list/KivResourceList.h"

namespace kiv {

namespace {

std::optional<std::string> resolved(std::string_view path) {
  return FileManager::defaultManager().resolvedPathOfItemAtPath(path).toOptional();
}

/// The path of the directory entry itself, whether or not one is there: a link in the last
/// component is not followed.
std::string placeOf(std::string_view path) {
  const auto directory = resolved(path::deletingLastPathComponent(path));
  if (!directory) return std::string(path);
  return path::appendingPathComponent(*directory, path::lastPathComponent(path));
}

}  // namespace

void PendingRemovals::add(std::string path, std::shared_ptr<const KivResource> user) {
  if (!paths_.insert(path).second) return;
  const std::string item = KivResourceStorageModule::itemRemovedWithPath(path);
  places_.insert(unicode::foldedName(placeOf(item)));
  if (const auto target = resolved(item)) places_.insert(unicode::foldedName(*target));
  files_.push_back({std::move(path), std::move(user)});
}

bool PendingRemovals::affect(std::string_view path) const {
  if (empty()) return false;
  const auto target = resolved(path);
  if (!target) return false;  // nothing is there
  return mayTakeAway(*target) || mayTakeAway(placeOf(path));
}

bool PendingRemovals::affectSaving(std::string_view path) const {
  if (empty()) return false;
  const std::string place = placeOf(path);
  if (mayTakeAway(place)) return true;
  const std::string below = unicode::foldedName(place) + "/";
  const auto first = places_.lower_bound(below);
  return first != places_.end() && first->starts_with(below);
}

bool PendingRemovals::mayTakeAway(std::string_view place) const {
  const std::string folded = unicode::foldedName(place);
  for (std::string_view above = folded; above.size() > 1;
       above = path::deletingLastPathComponent(above)) {
    if (places_.contains(above)) return true;
  }
  return false;
}

bool PendingRemovals::affect(const KivResource& resource) const {
  if (empty()) return false;
  if (!resource.looksForOwnFilesOnly()) return true;
  const auto paths = resource.useFilePaths();
  return std::any_of(paths.begin(), paths.end(),
                     [this](const std::string& path) { return affect(path); });
}

void PendingRemovals::removeUnused(const ResourceList& registry, const FailureHandler& onFailure) {
  paths_.clear();
  places_.clear();
  for (const File& file : std::exchange(files_, {})) {
    if (registry.isPathUsedByOthers(file.path, *file.user)) continue;
    std::optional<Error> error;
    KivResourceStorageModule::removeResourceFileWithPath_error(file.path, &error);
    if (error && onFailure) onFailure(file.path, *error);
  }
}

void PendingRemovals::keepFilesOf(const KivResource& user) {
  // The places stay, so that affect() may be true once too often.
  std::erase_if(files_, [&](const File& file) {
    return file.user.get() == &user && paths_.erase(file.path) > 0;
  });
}

void PendingRemovals::clear() {
  files_.clear();
  paths_.clear();
  places_.clear();
}

}  // namespace kiv
