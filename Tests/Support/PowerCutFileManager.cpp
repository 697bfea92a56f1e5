#include "Tests/Support/PowerCutFileManager.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <utility>

#include "KivPlatform/Foundation/files/Path.h"

namespace kiv::test {

namespace fs = std::filesystem;

/// A file or directory: the state that programs see, and the state on disk.
struct PowerCutFileManager::Node {
  bool isDirectory = true;
  std::string bytes;
  std::string durableBytes;
  std::map<std::string, NodePointer, std::less<>> items;
  std::map<std::string, NodePointer, std::less<>> durableItems;

  void clear() {
    for (const auto& [name, item] : items)
      item->clear();
    items.clear();
  }
  void synchronizeAll() {
    durableBytes = bytes;
    durableItems = items;
    for (const auto& [name, item] : items)
      item->synchronizeAll();
  }
};

class PowerCutFileManager::File : public WritableFile {
 public:
  File(PowerCutFileManager& manager, std::unique_ptr<WritableFile> file, std::string path,
       NodePointer node)
      : manager_(manager), file_(std::move(file)), path_(std::move(path)), node_(std::move(node)) {}

  Status write(std::string_view bytes) override {
    if (Status status = manager_.begin(path_); !status) return status;
    if (Status status = file_->write(bytes); !status) return status;
    const std::lock_guard guard(manager_.mutex_);
    node_->bytes += bytes;
    return {};
  }
  Status synchronize() override {
    if (Status status = manager_.begin(path_); !status) return status;
    const std::lock_guard guard(manager_.mutex_);
    node_->durableBytes = node_->bytes;
    return {};
  }
  Status close() override {
    if (Status status = manager_.begin(path_); !status) return status;
    return file_->close();
  }

 private:
  PowerCutFileManager& manager_;
  std::unique_ptr<WritableFile> file_;
  std::string path_;
  NodePointer node_;
};

class PowerCutFileManager::Batch : public BatchSync {
 public:
  Batch(PowerCutFileManager& manager, std::string path)
      : manager_(manager), path_(std::move(path)) {}

  [[nodiscard]] bool pays(std::size_t /*files*/) const override { return true; }

  Status synchronize() override {
    if (Status status = manager_.begin(path_); !status) return status;
    const std::lock_guard guard(manager_.mutex_);
    const NodePointer node = manager_.find(path_);
    if (!node) return systemError(ENOENT, "synchronize", path_);
    node->synchronizeAll();
    return {};
  }

 private:
  PowerCutFileManager& manager_;
  std::string path_;
};

PowerCutFileManager::PowerCutFileManager(std::string root)
    : rootPath_(std::move(root)), root_(scan(rootPath_)) {}

PowerCutFileManager::~PowerCutFileManager() = default;

PowerCutFileManager::NodePointer PowerCutFileManager::scan(const std::string& path) {
  auto node = std::make_shared<Node>();
  node->isDirectory = fs::is_directory(path);
  if (node->isDirectory) {
    for (const auto& item : fs::directory_iterator(path)) {
      node->items.emplace(item.path().filename().string(), scan(item.path().string()));
    }
  } else {
    std::ifstream stream(path, std::ios::binary);
    node->bytes.assign(std::istreambuf_iterator<char>(stream), {});
  }
  node->durableBytes = node->bytes;
  node->durableItems = node->items;
  return node;
}

void PowerCutFileManager::cutAfter(std::uint64_t operations) {
  const std::lock_guard guard(mutex_);
  cutAt_ = operations_ + operations;
  wasCut_ = false;
}

bool PowerCutFileManager::wasCut() const {
  const std::lock_guard guard(mutex_);
  return wasCut_;
}

void PowerCutFileManager::restart(Loss loss, std::uint32_t seed) {
  const std::lock_guard guard(mutex_);
  std::mt19937 chance(seed);
  const NodePointer remembered = root_;
  wipe();
  write(*remembered, rootPath_, loss, chance);
  root_ = scan(rootPath_);
}

void PowerCutFileManager::format() {
  const std::lock_guard guard(mutex_);
  wipe();
}

void PowerCutFileManager::wipe() {
  for (const auto& item : fs::directory_iterator(rootPath_))
    fs::remove_all(item.path());
  root_ = std::make_shared<Node>();
  cutAt_ = UINT64_MAX;
}

void PowerCutFileManager::write(const Node& node, const std::string& path, Loss loss,
                                std::mt19937& chance) {
  const auto survives = [&] { return loss == Loss::anyPart && (chance() & 1) != 0; };
  if (!node.isDirectory) {
    std::string bytes = node.durableBytes;
    if (bytes != node.bytes && survives()) {
      bytes = node.bytes.substr(0, chance() % (node.bytes.size() + 1));
    }
    std::ofstream(path, std::ios::binary) << bytes;
    return;
  }
  fs::create_directories(path);
  std::set<std::string> names;
  for (const auto& [name, item] : node.durableItems)
    names.insert(name);
  for (const auto& [name, item] : node.items)
    names.insert(name);
  for (const auto& name : names) {
    const auto now = node.items.find(name);
    const auto durable = node.durableItems.find(name);
    const NodePointer current = now == node.items.end() ? nullptr : now->second;
    const NodePointer synced = durable == node.durableItems.end() ? nullptr : durable->second;
    const NodePointer item = current != synced && survives() ? current : synced;
    if (item) write(*item, path + "/" + name, loss, chance);
  }
}

Status PowerCutFileManager::begin(std::string_view path) {
  const std::lock_guard guard(mutex_);
  if (operations_ < cutAt_) {
    ++operations_;
    return {};
  }
  wasCut_ = true;
  return systemError(EIO, "reach", path);
}

PowerCutFileManager::NodePointer PowerCutFileManager::find(std::string_view path) {
  if (path == rootPath_) return root_;
  const NodePointer parent = parentOf(path);
  const auto found = parent->items.find(path::lastPathComponent(path));
  return found == parent->items.end() ? nullptr : found->second;
}

PowerCutFileManager::NodePointer PowerCutFileManager::parentOf(std::string_view path) {
  const std::string_view parent = path::deletingLastPathComponent(path);
  if (!path.starts_with(rootPath_ + "/")) {
    throw std::logic_error(std::string(path) + " lies outside " + rootPath_);
  }
  NodePointer node = find(parent);
  if (!node) throw std::logic_error(std::string(parent) + " was never made");
  return node;
}

Status PowerCutFileManager::createDirectoryAtPath(std::string_view path) {
  if (Status status = begin(path); !status) return status;
  if (Status status = ForwardingFileManager::createDirectoryAtPath(path); !status) return status;
  const std::lock_guard guard(mutex_);
  NodePointer node = root_;
  std::string_view rest = path.substr(rootPath_.size());
  while (!rest.empty()) {
    rest.remove_prefix(1);
    const std::string name(rest.substr(0, rest.find('/')));
    rest.remove_prefix(name.size());
    NodePointer& item = node->items[name];
    if (!item) item = std::make_shared<Node>();
    node = item;
  }
  return {};
}

Result<std::unique_ptr<WritableFile>> PowerCutFileManager::createFileAtPath(std::string_view path) {
  if (Status status = begin(path); !status) return status;
  auto file = ForwardingFileManager::createFileAtPath(path);
  if (!file) return file;
  const std::lock_guard guard(mutex_);
  auto node = std::make_shared<Node>();
  node->isDirectory = false;
  parentOf(path)->items[std::string(path::lastPathComponent(path))] = node;
  return std::make_unique<File>(*this, *std::move(file), std::string(path), std::move(node));
}

Result<std::unique_ptr<WritableFile>> PowerCutFileManager::openFileAtPath_length(
    std::string_view path, std::uint64_t length) {
  if (Status status = begin(path); !status) return status;
  auto file = ForwardingFileManager::openFileAtPath_length(path, length);
  if (!file) return file;
  const std::lock_guard guard(mutex_);
  auto node = find(path);
  if (node->bytes.size() > length) node->bytes.resize(length);
  return std::make_unique<File>(*this, *std::move(file), std::string(path), std::move(node));
}

Status PowerCutFileManager::synchronizeDirectoryAtPath(std::string_view path) {
  if (Status status = begin(path); !status) return status;
  const std::lock_guard guard(mutex_);
  const bool isInside = path == rootPath_ || path.starts_with(rootPath_ + "/");
  if (!isInside) return {};
  const NodePointer node = find(path);
  if (!node) return systemError(ENOENT, "synchronize", path);
  node->durableItems = node->items;
  return {};
}

std::unique_ptr<BatchSync> PowerCutFileManager::beginBatchSyncAtPath(std::string_view path) {
  return allowsBatchSyncs ? std::make_unique<Batch>(*this, std::string(path)) : nullptr;
}

Status PowerCutFileManager::moveItemAtPath_toPath(std::string_view path, std::string_view newPath) {
  if (Status status = begin(path); !status) return status;
  if (Status status = ForwardingFileManager::moveItemAtPath_toPath(path, newPath); !status)
    return status;
  noteMove(path, newPath);
  return {};
}

Status PowerCutFileManager::withdrawItemAtPath_toPath(std::string_view path,
                                                      std::string_view newPath) {
  if (Status status = begin(path); !status) return status;
  if (Status status = ForwardingFileManager::withdrawItemAtPath_toPath(path, newPath); !status)
    return status;
  noteMove(path, newPath);
  return {};
}

void PowerCutFileManager::noteMove(std::string_view path, std::string_view newPath) {
  const std::lock_guard guard(mutex_);
  auto node = parentOf(path)->items.extract(std::string(path::lastPathComponent(path)));
  parentOf(newPath)->items[std::string(path::lastPathComponent(newPath))] = node.mapped();
}

Status PowerCutFileManager::exchangeItemAtPath_withItemAtPath(std::string_view path,
                                                              std::string_view otherPath) {
  if (Status status = begin(path); !status) return status;
  if (refusesExchanges) return systemError(EINVAL, "exchange", path);
  if (Status status = ForwardingFileManager::exchangeItemAtPath_withItemAtPath(path, otherPath);
      !status)
    return status;
  const std::lock_guard guard(mutex_);
  std::swap(parentOf(path)->items[std::string(path::lastPathComponent(path))],
            parentOf(otherPath)->items[std::string(path::lastPathComponent(otherPath))]);
  return {};
}

Status PowerCutFileManager::removeItemAtPath(std::string_view path) {
  if (Status status = begin(path); !status) return status;
  if (Status status = ForwardingFileManager::removeItemAtPath(path); !status) return status;
  const std::lock_guard guard(mutex_);
  auto node = parentOf(path)->items.extract(std::string(path::lastPathComponent(path)));
  node.mapped()->clear();
  return {};
}

Result<std::unique_ptr<FileLock>> PowerCutFileManager::lockFileAtPath(std::string_view path) {
  if (Status status = begin(path); !status) return status;
  auto lock = ForwardingFileManager::lockFileAtPath(path);
  if (!lock) return lock;
  const std::lock_guard guard(mutex_);
  NodePointer& item = parentOf(path)->items[std::string(path::lastPathComponent(path))];
  if (!item) {
    item = std::make_shared<Node>();
    item->isDirectory = false;
  }
  return lock;
}

}  // namespace kiv::test
