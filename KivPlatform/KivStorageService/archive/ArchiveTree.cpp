// Siblings are keyed by folded name. Two entries whose names differ only in case or Unicode
// normalization would overwrite each other on some file systems, so such an archive is rejected on
// all of them.

#include "KivPlatform/KivStorageService/archive/ArchiveTree.h"

#include "KivPlatform/Foundation/text/Unicode.h"

namespace kiv::storage {

namespace {

/// Checks whether an existing node can also serve for a new item whose name folds to the same key.
/// Only a directory of exactly the same name can.
std::optional<std::string> validateMeeting(const ArchiveNode& standing, std::string_view name,
                                           bool isFile) {
  if (standing.name != name) {
    return "has a path that differs from another entry's only by the spelling of its letters";
  }
  if (standing.isDirectory() && !isFile) return std::nullopt;
  if (!standing.isDirectory() && isFile) return "is listed twice";
  return "stands where the archive has both a file and a directory";
}

}  // namespace

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
      if (auto objection = validateMeeting(*node, name, isLast && entry)) return objection;
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
