#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/Value.h"
#include "KivResource/maintenance/KivResourceTrimPlan.h"

class KivResource;

namespace kiv {

/// Identifies an item on the disk: device and number.
using ItemNumber = std::pair<std::uint64_t, std::uint64_t>;

/// What is leased in this process and others.
class LeaseIndex {
 public:
  static Result<LeaseIndex> find();

  /// True if the item is leased, or may be: a lease that had to be made of copies is recognised by
  /// its name alone.
  [[nodiscard]] bool mayHold(const std::string& item) const;

 private:
  std::set<std::string, std::less<>> names_;  ///< Folded.
  std::set<ItemNumber> numbers_;
};

/// A loaded resource, and what it uses in the resources directory.
struct StoredResource {
  std::shared_ptr<KivResource> resource;
  std::vector<std::size_t> items;                          ///< Indexes, each once.
  std::vector<std::pair<std::string, std::size_t>> paths;  ///< Its paths with their items.
  /// True if all of the items would be removed with the resource, since they lie directly in the
  /// directory and no link leads to them.
  bool isPlain = true;
};

/// The items of the resources directory that loaded resources use.
class StoredItems {
 public:
  /// `directory` is the resolved resources directory.
  explicit StoredItems(std::string directory) : directory_(std::move(directory)) {}

  void add(std::shared_ptr<KivResource> resource);
  /// Adds those entries of the saved list that are none of the resources above as further users.
  void addOthers(const Array& savedList);

  [[nodiscard]] const std::vector<StoredResource>& resources() const noexcept { return resources_; }
  [[nodiscard]] const std::vector<std::string>& paths() const noexcept { return paths_; }
  /// Each with its size; 0 if it cannot be determined.
  [[nodiscard]] const std::vector<SharedItem>& items() const noexcept { return items_; }

 private:
  /// The path of the item that the file at the path belongs to; nothing outside of the directory.
  [[nodiscard]] std::optional<std::string> itemOfFile(std::string_view path) const;
  std::optional<std::size_t> indexOf(const std::string& item);
  void addUser(const std::vector<std::string>& paths);

  const std::string directory_;
  std::vector<StoredResource> resources_;
  std::vector<std::string> paths_;
  std::vector<SharedItem> items_;
  std::map<ItemNumber, std::size_t> indexes_;
};

}  // namespace kiv
