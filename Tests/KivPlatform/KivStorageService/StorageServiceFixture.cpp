#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace kiv::test {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view privateDirectory = ".KivStorageService";

std::string bytesOf(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void collect(const fs::path& directory, const std::string& prefix, Tree& tree) {
  for (const auto& item : fs::directory_iterator(directory)) {
    const std::string name = prefix + item.path().filename().string();
    if (item.is_symlink()) {
      tree[name] = "-> " + fs::read_symlink(item.path()).string();
    } else if (item.is_directory()) {
      tree[name + "/"] = "";
      collect(item.path(), name + "/", tree);
    } else {
      tree[name] = item.is_regular_file() ? bytesOf(item.path()) : "a special file";
    }
  }
}

}  // namespace

Tree treeOf(const std::string& directory) {
  Tree tree;
  if (fs::exists(directory)) collect(directory, "", tree);
  return tree;
}

void put(const std::string& path, std::string_view bytes) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string pageArchive(std::string_view page) {
  return ZipBuilder()
      .addFile("index.html", std::string(page))
      .addDirectory("css/")
      .addFile("css/" + std::string(page) + ".css", "body of " + std::string(page))
      .build();
}

Tree pageTree(std::string_view page) {
  const std::string name(page);
  return {{"promo/", ""},
          {"promo/index.html", name},
          {"promo/css/", ""},
          {"promo/css/" + name + ".css", "body of " + name}};
}

StorageServiceFixture::StorageServiceFixture() : root_(scratch_.path("root")) {
  fs::create_directory(root_);
  KivStorageService::setRootPath(root_);
}

StorageServiceFixture::~StorageServiceFixture() {
  KivStorageService::setArchiveLimits({});
  KivStorageService::setRootPath("");
}

std::string StorageServiceFixture::stored(std::string_view name) const {
  return root_ + "/" + std::string(resources) + "/" + std::string(name);
}

std::optional<Error> StorageServiceFixture::save(std::string_view name, std::string_view bytes) {
  std::optional<Error> error;
  const bool isSaved = KivStorageService::saveData_forFileName_atRelativePath_error(
      Data(std::string(bytes)), name, resources, &error);
  EXPECT_EQ(isSaved, !error.has_value()) << name;
  return error;
}

std::optional<std::string> StorageServiceFixture::contents(std::string_view name) const {
  if (!fs::is_regular_file(fs::symlink_status(stored(name)))) return std::nullopt;
  return bytesOf(stored(name));
}

Tree StorageServiceFixture::tree() const {
  Tree all = treeOf(root_);
  std::erase_if(all, [](const auto& item) { return item.first.starts_with(privateDirectory); });
  return all;
}

Tree StorageServiceFixture::temporaries() const {
  return treeOf(root_ + "/" + std::string(privateDirectory));
}

void StorageServiceFixture::restart() {
  KivStorageService::setRootPath("");
  KivStorageService::setRootPath(root_);
}

}  // namespace kiv::test
