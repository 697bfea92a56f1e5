// A three-way merge of the registry with a list that another process has saved; the base is the
// list that this process last read or wrote. The rule is in Docs/ON-DISK-FORMAT.md.

#include "KivResource/list/KivResourceListMerge.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceObject.h"

namespace kiv {

namespace {

using Places = std::vector<std::size_t>;
using Resource = std::shared_ptr<KivResource>;

const Dictionary& dictionaryOf(const KivResource& resource) {
  static const Dictionary none;
  const auto& dictionary = resource.resourceDictionary();
  return dictionary ? *dictionary : none;
}

std::string identifierOf(const Dictionary& dictionary) {
  return dictionary["banner_id"].string();
}

/// Not updated(), which the host may have changed: what is merged, and saved, are dictionaries.
std::uint64_t stampOf(const KivResource& resource) {
  return dictionaryOf(resource)["updated"].unsignedInteger();
}

class Merge {
 public:
  Merge(const Array& base, const Array& saved, ResourceList& registry)
      : base_(base),
        saved_(saved),
        registry_(registry),
        own_(registry.resources()),
        fates_(own_.size(), Fate::stays),
        placed_(saved.size()) {}

  ListMerge run() {
    groupByIdentifier();
    for (auto& [identifier, group] : groups_)
      settle(group);
    arrange();
    return std::move(outcome_);
  }

 private:
  enum class Fate {
    stays,   ///< Behind what the saved list has.
    placed,  ///< Where the saved list has it.
    leaves,
  };

  /// The entries with one identifier, by their places.
  struct Group {
    Places base;
    Places saved;
    Places own;
  };

  using Others = std::map<std::size_t, Resource>;  // by their places in the saved list

  void groupByIdentifier();
  void settle(Group& group);
  bool dropLost(Group& group);
  void pairEqualEntries(const Group& group);
  [[nodiscard]] Others usableOthers(const Group& group) const;
  [[nodiscard]] std::optional<std::uint64_t> newestOwn(const Group& group) const;
  [[nodiscard]] std::optional<std::uint64_t> newestSaved(const Group& group,
                                                         const Others& others) const;
  void takeSaved(const Group& group, const Others& others);
  void arrange();

  [[nodiscard]] bool isInBase(const Group& group, const Dictionary& dictionary) const {
    return std::any_of(group.base.begin(), group.base.end(),
                       [&](std::size_t place) { return base_[place].dictionary() == dictionary; });
  }
  [[nodiscard]] bool savedIsAsInBase(const Group& group) const {
    return std::equal(group.saved.begin(), group.saved.end(), group.base.begin(), group.base.end(),
                      [&](std::size_t s, std::size_t b) { return saved_[s] == base_[b]; });
  }
  [[nodiscard]] bool ownIsAsInBase(const Group& group) const {
    return std::equal(group.own.begin(), group.own.end(), group.base.begin(), group.base.end(),
                      [&](std::size_t o, std::size_t b) {
                        return dictionaryOf(*own_[o]) == base_[b].dictionary();
                      });
  }

  const Array& base_;
  const Array& saved_;
  ResourceList& registry_;
  const ResourceArray own_;
  std::vector<Fate> fates_;  ///< Of each of our own.
  ResourceArray placed_;     ///< What stands for each entry of the saved list, if anything.
  std::unordered_map<std::string, Group> groups_;
  ListMerge outcome_;
};

void Merge::groupByIdentifier() {
  for (std::size_t i = 0; i < base_.size(); ++i)
    groups_[identifierOf(base_[i].dictionary())].base.push_back(i);
  for (std::size_t i = 0; i < saved_.size(); ++i)
    groups_[identifierOf(saved_[i].dictionary())].saved.push_back(i);
  for (std::size_t i = 0; i < own_.size(); ++i)
    groups_[identifierOf(dictionaryOf(*own_[i]))].own.push_back(i);
}

void Merge::settle(Group& group) {
  const bool hasLost = dropLost(group);
  pairEqualEntries(group);
  if (!hasLost && savedIsAsInBase(group)) return;
  const Others others = usableOthers(group);
  const bool onlySavedChanged = !hasLost && ownIsAsInBase(group);
  if (onlySavedChanged || newestSaved(group, others) > newestOwn(group)) {
    takeSaved(group, others);
  } else {
    for (const auto& [place, resource] : others)
      outcome_.replaced.push_back(resource);
  }
}

std::optional<std::uint64_t> Merge::newestOwn(const Group& group) const {
  std::optional<std::uint64_t> newest;
  for (const std::size_t place : group.own)
    newest = std::max(newest, std::optional(stampOf(*own_[place])));
  return newest;
}

std::optional<std::uint64_t> Merge::newestSaved(const Group& group, const Others& others) const {
  std::optional<std::uint64_t> newest;
  for (const std::size_t place : group.saved) {
    if (placed_[place]) newest = std::max(newest, std::optional(stampOf(*placed_[place])));
  }
  for (const auto& [place, resource] : others)
    newest = std::max(newest, std::optional(stampOf(*resource)));
  return newest;
}

/// True if something was lost.
bool Merge::dropLost(Group& group) {
  const auto lost = [&](std::size_t place) {
    const Resource& resource = own_[place];
    if (isInBase(group, dictionaryOf(*resource)) || resource->filesExist()) return false;
    fates_[place] = Fate::leaves;
    outcome_.lost.push_back(resource);
    return true;
  };
  return std::erase_if(group.own, lost) > 0;
}

void Merge::pairEqualEntries(const Group& group) {
  for (const std::size_t savedPlace : group.saved) {
    const Dictionary& entry = saved_[savedPlace].dictionary();
    const auto own = std::find_if(group.own.begin(), group.own.end(), [&](std::size_t place) {
      return fates_[place] == Fate::stays && dictionaryOf(*own_[place]) == entry;
    });
    if (own == group.own.end()) continue;
    fates_[*own] = Fate::placed;
    placed_[savedPlace] = own_[*own];
  }
}

/// The resources of the saved entries that the registry does not have and whose files are there.
Merge::Others Merge::usableOthers(const Group& group) const {
  Others others;
  for (const std::size_t place : group.saved) {
    if (placed_[place]) continue;
    auto resource = KivResourceFactory::createResourceFromDictionary(saved_[place].dictionary());
    if (resource && resource->missingFilesLinks().empty()) others[place] = std::move(resource);
  }
  return others;
}

/// The process that removed an entry of `base` from the list also removes its files.
void Merge::takeSaved(const Group& group, const Others& others) {
  for (const std::size_t place : group.own) {
    if (fates_[place] == Fate::placed) continue;
    fates_[place] = Fate::leaves;
    const Resource& resource = own_[place];
    if (!isInBase(group, dictionaryOf(*resource))) outcome_.replaced.push_back(resource);
  }
  for (const auto& [place, resource] : others) {
    placed_[place] = resource;
    outcome_.taken.push_back(resource);
  }
}

void Merge::arrange() {
  ResourceArray order;
  order.reserve(own_.size() + outcome_.taken.size());
  for (const Resource& resource : placed_) {
    if (resource) order.push_back(resource);
  }
  for (std::size_t i = 0; i < own_.size(); ++i) {
    if (fates_[i] == Fate::stays) order.push_back(own_[i]);
  }
  if (order == own_) return;
  registry_.removeAll(own_);
  for (Resource& resource : order)
    registry_.append(std::move(resource));
}

}  // namespace

ListMerge mergeIntoRegistry(const Array& base, const Array& saved, ResourceList& registry) {
  return Merge(base, saved, registry).run();
}

}  // namespace kiv
