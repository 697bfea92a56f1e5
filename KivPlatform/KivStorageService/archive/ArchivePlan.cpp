#include "KivPlatform/KivStorageService/archive/ArchivePlan.h"

#include <utility>

#include "KivPlatform/Foundation/text/Unicode.h"
#include "KivPlatform/KivStorageService/archive/ArchiveRules.h"

namespace kiv::storage {

namespace {

/// What the rules say of an entry before the decoder has read its name.
std::optional<std::string> validateListedEntry(const ArchiveEntry& entry,
                                               const ArchiveLimits& limits) {
  if (entry.rawName.find('\0') != entry.rawName.npos) return "has a NUL character in its name";
  if (auto objection = validateEntryKind(entry, limits)) return objection;
  if (entry.saysUTF8() && !unicode::isUTF8(entry.rawName)) return "has a name that is no UTF-8";
  return std::nullopt;
}

std::optional<ArchiveObjection> validateList(const std::vector<ArchiveEntry>& entries,
                                             const ArchiveLimits& limits) {
  std::uint64_t total = 0;
  for (const ArchiveEntry& entry : entries) {
    if (const auto rule = validateListedEntry(entry, limits)) {
      return entryObjection(entry.rawName, *rule);
    }
    if (isLeftOut(entry.rawName)) continue;
    total += entry.size;  // no overflow: at most as many sizes as entries, each below its limit
    if (total > limits.totalBytes) {
      return "holds more than " + std::to_string(limits.totalBytes) + " bytes unpacked";
    }
  }
  return std::nullopt;
}

std::optional<std::string> addEntry(const ArchivePlan& plan, std::uint64_t index,
                                    const ArchiveLimits& limits, ArchiveTree& tree) {
  const std::string name = plan.reader->name(index);
  if (auto objection = validateEntryName(name, limits)) return objection;
  const std::string_view path = pathOfEntryName(name);
  if (path.empty() || isLeftOut(name)) return std::nullopt;
  return name.ends_with('/') ? tree.addDirectory(path) : tree.addFile(path, index);
}

/// Checks that the decoder sees the entries that were checked, and lays them out.
std::optional<ArchiveObjection> layOut(ArchivePlan& plan, const ArchiveLimits& limits) {
  if (plan.reader->entryCount() != plan.entries.size()) {
    return "can be read in two ways";
  }
  for (std::uint64_t index = 0; index < plan.entries.size(); ++index) {
    const ArchiveEntry& entry = plan.entries[static_cast<std::size_t>(index)];
    if (plan.reader->rawName(index) != entry.rawName) {
      return entryObjection(entry.rawName, "can be read in two ways");
    }
    if (const auto rule = addEntry(plan, index, limits, plan.tree)) {
      return entryObjection(entry.rawName, *rule);
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<ArchivePlan> planArchive(const Data& archive, const ArchiveLimits& limits,
                                       ArchiveObjection& objection) {
  auto directory = ArchiveDirectory::read(archive, limits, objection);
  if (!directory) return std::nullopt;
  if (auto refusal = validateList(directory->entries(), limits)) {
    objection = std::move(*refusal);
    return std::nullopt;
  }
  std::string reason;
  auto reader = ArchiveReader::open(archive, reason);
  if (!reader) {
    objection = "cannot be read: " + reason;
    return std::nullopt;
  }
  ArchivePlan plan{directory->entries(), std::move(reader), ArchiveTree(limits.items)};
  if (auto refusal = layOut(plan, limits)) {
    objection = std::move(*refusal);
    return std::nullopt;
  }
  return plan;
}

}  // namespace kiv::storage
