// Every check that needs no decompression is done before the first byte is written. The names are
// checked as libzip decodes them, since those are the names that files will get.

#include "KivPlatform/KivStorageService/archive/ArchivePlan.h"

#include <utility>

#include "KivPlatform/Foundation/text/Unicode.h"
#include "KivPlatform/KivStorageService/archive/ArchiveRules.h"

namespace kiv::storage {

namespace {

/// Checks what is known of an entry before libzip has decoded its name.
std::optional<std::string> validateListedEntry(const ArchiveEntry& entry,
                                               const ArchiveLimits& limits) {
  if (entry.rawName.find('\0') != entry.rawName.npos) return "has a NUL character in its name";
  if (auto objection = validateEntryKind(entry, limits)) return objection;
  if (entry.saysUTF8() && !unicode::isUTF8(entry.rawName)) return "has a name that is no UTF-8";
  return std::nullopt;
}

Status checkList(const std::vector<ArchiveEntry>& entries, const Archive& archive) {
  const ArchiveLimits& limits = archive.limits;
  std::uint64_t total = 0;
  for (const ArchiveEntry& entry : entries) {
    if (const auto rule = validateListedEntry(entry, limits)) {
      return archive.refusal(entry.rawName, *rule);
    }
    if (isLeftOut(entry.rawName)) continue;
    total += entry.size;  // no overflow: the number of entries and each size are limited
    if (total > limits.totalBytes) {
      return archive.refusal("holds more than " + std::to_string(limits.totalBytes) +
                             " bytes unpacked");
    }
  }
  return {};
}

std::optional<std::string> addEntry(const ArchivePlan& plan, std::uint64_t index,
                                    const ArchiveLimits& limits, ArchiveTree& tree) {
  const std::string name = plan.reader->name(index);
  if (auto objection = validateEntryName(name, limits)) return objection;
  const std::string_view path = pathOfEntryName(name);
  if (path.empty() || isLeftOut(name)) return std::nullopt;
  return name.ends_with('/') ? tree.addDirectory(path) : tree.addFile(path, index);
}

/// Checks that libzip sees the same entries as the strict parser, and adds them to the tree.
Status layOut(ArchivePlan& plan, const Archive& archive) {
  const std::string_view ambiguous = "can be read in two ways";
  if (plan.reader->entryCount() != plan.entries.size()) return archive.refusal(ambiguous);
  for (std::uint64_t index = 0; index < plan.entries.size(); ++index) {
    const std::string& name = plan.entries[static_cast<std::size_t>(index)].rawName;
    if (plan.reader->rawName(index) != name) return archive.refusal(name, ambiguous);
    if (const auto rule = addEntry(plan, index, archive.limits, plan.tree)) {
      return archive.refusal(name, *rule);
    }
  }
  return {};
}

}  // namespace

Result<ArchivePlan> planArchive(const Archive& archive) {
  auto directory = ArchiveDirectory::read(archive);
  if (!directory) return directory.error();
  if (Status status = checkList(directory->entries(), archive); !status) return status;
  auto reader = ArchiveReader::open(archive);
  if (!reader) return reader.error();
  ArchivePlan plan{directory->entries(), *std::move(reader), ArchiveTree(archive.limits.items)};
  if (Status status = layOut(plan, archive); !status) return status;
  return plan;
}

}  // namespace kiv::storage
