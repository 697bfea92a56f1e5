// The rules do not depend on the operating system. An archive is either valid everywhere or
// nowhere, so backslashes and drive letters are rejected on POSIX systems too.

#include "KivPlatform/KivStorageService/archive/ArchiveRules.h"

#include <algorithm>

#include "KivPlatform/KivStorageService/archive/ZipFormat.h"

namespace kiv::storage {

namespace {

constexpr std::uint32_t unixDirectory = 0040000;
constexpr std::uint32_t unixRegularFile = 0100000;
constexpr std::uint32_t unixLink = 0120000;

bool startsWithDrive(std::string_view name) {
  if (name.size() < 2 || name[1] != ':') return false;
  return (name[0] >= 'A' && name[0] <= 'Z') || (name[0] >= 'a' && name[0] <= 'z');
}

std::optional<std::string> validateComponent(std::string_view component,
                                             const ArchiveLimits& limits) {
  if (component.empty()) return "has an empty part in its path";
  if (component == "..") return "leads out of the archive with \"..\"";
  if (component == ".") return "has the part \".\" in its path";
  if (startsWithDrive(component)) return "has the path of a drive";
  if (component.size() > limits.nameBytes) {
    return "has a name longer than " + std::to_string(limits.nameBytes) + " bytes";
  }
  return std::nullopt;
}

std::optional<std::string> validateComponents(std::string_view path, const ArchiveLimits& limits) {
  std::uint64_t levels = 0;
  for (std::size_t start = 0; start <= path.size(); ++levels) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    if (auto objection = validateComponent(path.substr(start, end - start), limits)) {
      return objection;
    }
    start = end + 1;
  }
  if (levels > limits.levels) {
    return "lies deeper than " + std::to_string(limits.levels) + " levels";
  }
  return std::nullopt;
}

std::optional<std::string> validateFileType(const ArchiveEntry& entry) {
  const std::uint32_t type = entry.unixFileType();
  if (type == unixLink) return "is a symbolic link";
  if (type == unixDirectory && !entry.isDirectory()) return "is a directory with a file's name";
  if (type != 0 && type != unixDirectory && type != unixRegularFile) return "is a special file";
  return std::nullopt;
}

}  // namespace

std::string_view pathOfEntryName(std::string_view name) {
  while (name.starts_with("./"))
    name.remove_prefix(2);
  if (name.ends_with('/')) name.remove_suffix(1);
  return name;
}

bool isLeftOut(std::string_view name) {
  constexpr std::string_view folder = "__MACOSX";
  const std::string_view path = pathOfEntryName(name);
  const std::string_view first = path.substr(0, path.find('/'));
  return first == folder && (path.size() > folder.size() || name.ends_with('/'));
}

std::optional<std::string> validateEntryName(std::string_view name, const ArchiveLimits& limits) {
  if (name.empty()) return "has no name";
  if (name.find('\0') != name.npos) return "has a NUL character in its name";
  if (name.find('\\') != name.npos) return "has a backslash in its name";
  if (name.starts_with('/')) return "has an absolute path";
  const std::string_view path = pathOfEntryName(name);
  if (path.size() > limits.pathBytes) {
    return "has a path longer than " + std::to_string(limits.pathBytes) + " bytes";
  }
  if (path.empty() && name.ends_with("./")) return std::nullopt;
  return validateComponents(path, limits);
}

std::optional<std::string> validateEntryKind(const ArchiveEntry& entry,
                                             const ArchiveLimits& limits) {
  if (entry.isEncrypted()) return "is encrypted";
  if (auto objection = validateFileType(entry)) return objection;
  if (entry.method != zip::storedMethod && entry.method != zip::deflatedMethod) {
    return "is packed with the unknown method " + std::to_string(entry.method);
  }
  if (entry.isDirectory() && entry.size != 0) return "is a directory with contents";
  if (entry.size > limits.fileBytes) {
    return "is larger than " + std::to_string(limits.fileBytes) + " bytes";
  }
  return std::nullopt;
}

}  // namespace kiv::storage
