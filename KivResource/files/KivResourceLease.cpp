// The leased copy is made of the resource's dictionary, with each path replaced by that of the
// lease. So it works for every kind that keeps its paths in its dictionary, which it must do to be
// saved.

#include "KivResource/files/KivResourceLease.h"

#include <exception>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/Value.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceObject.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/files/KivResourceCachePlace.h"
#include "KivResource/files/KivResourceShownTime.h"

namespace kiv {

namespace {

using NewPaths = std::map<std::string, std::string, std::less<>>;

Error leaseError(KivResourceLeaseErrorCode code, const KivResource& resource,
                 std::string_view reason) {
  std::string message = "The resource with ID ";
  message.append(resource.resourceID()).append(" cannot be leased: ").append(reason);
  return Error(KivResourceLeaseErrorDomain, static_cast<std::int64_t>(code), message);
}

Error filesMissing(const KivResource& resource) {
  return leaseError(KivResourceLeaseErrorCode::filesMissing, resource,
                    "its files are not all there.");
}

/// True if the framework may remove the item from the cache in use: it removes only what lies
/// directly in the resources directory, and what other leases keep.
bool mayBeRemoved(std::string_view item) {
  FileManager& files = FileManager::defaultManager();
  const auto directory = files.resolvedPathOfItemAtPath(path::deletingLastPathComponent(item));
  if (!directory) return false;
  const std::string resources = KivResourceStorageModule::resourcesDirectoryPath();
  const bool isStored =
      !resources.empty() && files.resolvedPathOfItemAtPath(resources).toOptional() == *directory;
  return isStored || KivStorageService::isLeasedPath(
                         path::appendingPathComponent(*directory, path::lastPathComponent(item)));
}

using LeasedPath = std::shared_ptr<const std::string>;

/// Leases the item in the cache that may remove it; nullptr if none may.
Result<LeasedPath> leaseItem(const std::string& item) {
  LeasedPath leased;
  std::optional<Error> error;
  CacheInUse::isTrueForAny([&] {
    if (!mayBeRemoved(item)) return false;
    leased = KivStorageService::leaseItemAtPath(item, &error);
    return true;
  });
  if (error) return *std::move(error);
  return leased;
}

/// The value with the new path in place of each string that is an old one.
Value withNewPaths(const Value& value, const NewPaths& newPaths) {
  if (value.isString()) {
    const auto found = newPaths.find(value.stringView());
    return found == newPaths.end() ? value : Value(found->second);
  }
  if (value.isArray()) {
    Array array;
    for (const Value& element : value.array())
      array.append(withNewPaths(element, newPaths));
    return array;
  }
  if (!value.isDictionary()) return value;
  Dictionary dictionary;
  for (const auto& member : value.dictionary())
    dictionary.set(member.key(), withNewPaths(member.value, newPaths));
  return dictionary;
}

std::shared_ptr<KivResource> copyWithNewPaths(const KivResource& resource,
                                              const NewPaths& newPaths) {
  const auto copy = resource.copyWithZone();
  if (!copy) return nullptr;
  const Value dictionary = withNewPaths(Value(*copy->resourceDictionary()), newPaths);
  copy->setResourceDictionary(std::make_shared<Dictionary>(dictionary.dictionary()));
  return copy->copyWithZone();
}

/// The items that the framework removes with the files of a resource, under leased paths.
class LeasedItems {
 public:
  /// Leases the item of the file at the path, unless it is leased already.
  Status add(const std::string& path) {
    const std::string item = KivResourceStorageModule::itemRemovedWithPath(path);
    const bool isNew = !items_.contains(item);
    auto leased = isNew ? leaseItem(item) : items_[item];
    if (!leased) return leased.error();
    if (!*leased) return {};
    newPaths_[path] = **leased + path.substr(item.size());
    items_[item] = *std::move(leased);
    return {};
  }

  [[nodiscard]] const NewPaths& newPaths() const noexcept { return newPaths_; }

  std::vector<LeasedPath> take() && {
    std::vector<LeasedPath> paths;
    for (auto& [item, leased] : items_)
      paths.push_back(std::move(leased));
    return paths;
  }

 private:
  std::map<std::string, LeasedPath> items_;
  NewPaths newPaths_;
};

Result<LeasedItems> leaseItems(const KivResource& resource) {
  if (!resource.filesExist()) return filesMissing(resource);
  LeasedItems items;
  for (const std::string& path : resource.useFilePaths()) {
    if (Status status = items.add(path); !status) return status;
  }
  return items;
}

}  // namespace

Lease::Lease(std::shared_ptr<KivResource> resource, Paths paths)
    : resource_(std::move(resource)), paths_(std::move(paths)) {}
Lease::Lease(Lease&&) noexcept = default;
Lease& Lease::operator=(Lease&&) noexcept = default;
Lease::~Lease() = default;

std::optional<Lease> Lease::take(const KivResource& resource, std::optional<Error>* error) {
  const auto attempt = [&]() -> Result<Lease> {
    auto items = leaseItems(resource);
    if (!items) return items.error();
    auto copy = copyWithNewPaths(resource, items->newPaths());
    if (!copy) {
      return leaseError(KivResourceLeaseErrorCode::notCopyable, resource,
                        "its class cannot be copied.");
    }
    if (!copy->filesExist()) return filesMissing(resource);
    noteShown(resource);
    return Lease(std::move(copy), std::move(*items).take());
  };
  return attempt().reportTo(error);
}

}  // namespace kiv
