// The rules do not depend on the operating system: an archive is valid everywhere or nowhere. So
// backslashes, drive letters and device names are rejected on POSIX systems too. Two entries whose
// names differ only in case or Unicode normalization would overwrite each other on some file
// systems, so siblings are keyed by folded name.

#include "KivPlatform/KivStorageService/archive/ArchiveRules.h"

#include <algorithm>

#include "KivPlatform/Foundation/files/FileName.h"
#include "KivPlatform/Foundation/text/Unicode.h"

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
  if (const auto problem = filename::validatePortability(component)) {
    return "has a part in its path that " + *problem;
  }
  return std::nullopt;
}

std::optional<std::string> validateComponents(std::string_view path, const ArchiveLimits& limits) {
  std::uint64_t levels = 0;
  for (std::size_t start = 0; start <= path.size(); ++levels) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    if (auto problem = validateComponent(path.substr(start, end - start), limits)) {
      return problem;
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

/// Checks whether a new item may share the existing node that has the same folded name. Only a
/// directory may, with a directory of exactly the same name.
std::optional<std::string> validateConflict(const ArchiveNode& standing, std::string_view name,
                                            bool isFile) {
  if (standing.name != name) {
    return "has a path that differs from another entry's only by the spelling of its letters";
  }
  if (standing.isDirectory() && !isFile) return std::nullopt;
  if (!standing.isDirectory() && isFile) return "is listed twice";
  return "stands where the archive has both a file and a directory";
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
  if (auto problem = validateFileType(entry)) return problem;
  if (!entry.hasKnownMethod()) {
    return "is packed with the unknown method " + std::to_string(entry.method);
  }
  if (entry.isDirectory() && entry.size != 0) return "is a directory with contents";
  if (entry.size > limits.fileBytes) {
    return "is larger than " + std::to_string(limits.fileBytes) + " bytes";
  }
  return std::nullopt;
}

const ArchiveNode* ArchiveNode::child(std::string_view childName) const {
  const auto found = children.find(unicode::folded(childName));
  return found != children.end() && found->second->name == childName ? found->second.get()
                                                                     : nullptr;
}

std::optional<std::string> ArchiveTree::addFile(std::string_view path, std::uint64_t entry) {
  return add(path, entry);
}

std::optional<std::string> ArchiveTree::addDirectory(std::string_view path) {
  return add(path, std::nullopt);
}

std::optional<std::string> ArchiveTree::add(std::string_view path,
                                            std::optional<std::uint64_t> entry) {
  ArchiveNode* directory = &root_;
  while (true) {
    const std::size_t separator = path.find('/');
    const bool isLast = separator == path.npos;
    const std::string_view name = path.substr(0, separator);
    std::unique_ptr<ArchiveNode>& node = directory->children[unicode::folded(name)];
    if (node) {
      if (auto problem = validateConflict(*node, name, isLast && entry)) return problem;
    } else {
      node = std::make_unique<ArchiveNode>();
      node->name = name;
      if (isLast) node->entry = entry;
      if (++items_ > mostItems_) {
        return "is one of more than " + std::to_string(mostItems_) + " files and directories";
      }
    }
    if (isLast) return std::nullopt;
    directory = node.get();
    path.remove_prefix(separator + 1);
  }
}

const ArchiveNode& ArchiveTree::top(std::string_view entryPage) const {
  if (root_.children.size() != 1) return root_;
  const ArchiveNode& only = *root_.children.begin()->second;
  const ArchiveNode* const page = only.child(entryPage);
  return page && !page->isDirectory() ? only : root_;
}

}  // namespace kiv::storage
