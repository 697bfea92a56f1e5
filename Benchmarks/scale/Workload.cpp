#include "Benchmarks/scale/Workload.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "KivPlatform/Foundation/values/JSON.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceManager.h"

namespace kiv::bench {

namespace {

namespace fs = std::filesystem;

enum class Kind { banner, video, page, archive };

/// Resources come in pairs of one kind, so that a pair can share its files.
Kind kindOf(std::size_t number) {
  constexpr Kind kinds[] = {Kind::banner, Kind::video, Kind::banner, Kind::page,
                            Kind::banner, Kind::video, Kind::banner, Kind::archive};
  return kinds[number / 2 % std::size(kinds)];
}

std::string padded(std::size_t number) {
  std::string digits = std::to_string(number);
  return std::string(digits.size() < 6 ? 6 - digits.size() : 0, '0') + digits;
}

std::string identifierOf(std::size_t number) {
  return std::to_string(1000000 + number);
}

/// The stem of the file names. In the first version, the second of ten resources uses the files of
/// the first.
std::string stemOf(std::size_t number, unsigned version) {
  const bool shares = version == 1 && number % 10 == 1;
  return padded(shares ? number - 1 : number) + "-v" + std::to_string(version);
}

Dictionary commonItem(std::size_t number, unsigned version, std::string_view engine,
                      std::string_view type) {
  return {{"engine", engine},
          {"name", "Resource " + padded(number) + " of the season"},
          {"type", type},
          {"banner_id", identifierOf(number)},
          {"banner_uid", "uid-" + padded(number)},
          {"priority", number % 10},
          {"updated", 1700000000 + version}};
}

std::string marketLink(std::size_t number) {
  return "https://market.example/offers/" + padded(number);
}

Dictionary itemOf(std::size_t number, unsigned version = 1) {
  const std::string stem = stemOf(number, version);
  switch (kindOf(number)) {
    case Kind::banner: {
      Dictionary item = commonItem(number, version, "eco_standard", Workload::types()[number % 2]);
      item.set("market_url", marketLink(number));
      item.set("image_728x90", "banners/wide-" + stem + ".png");
      item.set("image_320x50", "banners/small-" + stem + ".png");
      return item;
    }
    case Kind::video: {
      Dictionary item = commonItem(number, version, "eco_video", "video");
      item.set("title", "Promotion " + padded(number));
      item.set("market_url", marketLink(number));
      item.set("image", "media/icon-" + stem + ".png");
      item.set("video_file_landscape", "media/video-" + stem + ".mp4");
      item.set("votes", number);
      item.set("rating", 4.5);
      return item;
    }
    case Kind::page: {
      Dictionary item = commonItem(number, version, "eco_context", "context");
      item.set("html", "pages/page-" + stem + ".html");
      return item;
    }
    case Kind::archive:
      break;
  }
  Dictionary item = commonItem(number, version, "eco_fs", "fullscreen");
  item.set("html", "pages/archive-" + stem + ".zip");
  return item;
}

Value configOf(Array items) {
  return Dictionary{{"items", std::move(items)}};
}

std::string read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void write(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary);
  file.exceptions(std::ios::failbit | std::ios::badbit);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
}

}  // namespace

Workload::Workload(const std::string& directory, std::size_t size)
    : size_(size),
      root_(fs::absolute(fs::path(directory) / std::to_string(size)).string()),
      listPath_(root_ + "/KivResource/resources_config.json") {
  fs::create_directories(root_ + "/KivResource/Resources");
  for (std::size_t number = 0; number < size_; ++number) {
    storeFiles(number, 1);
    if (number % 10 == 0) storeFiles(number, 2);
    identifiers_.push_back(identifierOf(number));
  }
  std::mt19937 random(1);  // every run asks in the same order
  std::shuffle(identifiers_.begin(), identifiers_.end(), random);
  makeConfigs();
  makeLists();
}

const std::vector<std::string>& Workload::types() {
  static const std::vector<std::string> types = {"start", "menu", "video", "context", "fullscreen"};
  return types;
}

void Workload::storeFiles(std::size_t number, unsigned version) const {
  const std::string resources = root_ + "/KivResource/Resources/";
  const std::string stem = stemOf(number, version);
  switch (kindOf(number)) {
    case Kind::banner:
      return write(resources + "wide-" + stem + ".png", "image");
    case Kind::video:
      write(resources + "icon-" + stem + ".png", "icon");
      return write(resources + "video-" + stem + ".mp4", "video");
    case Kind::page:
      return write(resources + "page-" + stem + ".html", "page");
    case Kind::archive:
      fs::create_directory(resources + "archive-" + stem);
      return write(resources + "archive-" + stem + "/index.html", "page");
  }
}

void Workload::makeConfigs() {
  Array all;
  Array half;
  Array newer;
  for (std::size_t number = 0; number < size_; ++number) {
    const Dictionary item = itemOf(number);
    all.append(item);
    if (number % 2 == 0) half.append(item);
    newer.append(number % 10 == 0 ? itemOf(number, 2) : item);
  }
  // Parsed from JSON text, as in a host.
  const auto parsed = [](Array items) {
    return *JSON::read(*JSON::write(configOf(std::move(items))));
  };
  config_ = parsed(std::move(all));
  configOfHalf_ = parsed(std::move(half));
  configWithNewerTenth_ = parsed(std::move(newer));
}

/// Written by the framework, at the end of a pass that finds all files stored.
void Workload::makeLists() {
  putList("[]");
  KivResourceManager::newInstance()->loadResourcesForConfig(config_);
  wholeList_ = read(listPath_);
  const auto list = JSON::read(Data(wholeList_));
  if (!list || list->array().size() != size_) throw std::runtime_error("The list is not whole.");
  Array withoutTenth;
  for (std::size_t number = 0; number < size_ - tenth(); ++number) {
    withoutTenth.append(list->array()[number]);
  }
  listWithoutTenth_ = (*JSON::write(withoutTenth)).view();
}

void Workload::putList(const std::string& text) const {
  KivStorageService::setRootPath(root_);
  write(listPath_, text);
}

}  // namespace kiv::bench
