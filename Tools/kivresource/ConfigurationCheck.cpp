#include "Tools/kivresource/ConfigurationCheck.h"

#include <string_view>
#include <utility>

namespace tool {

namespace {

std::optional<std::string> remarkOn(const kiv::Dictionary& item,
                                    const std::optional<kiv::KindKeys>& keysOfKind) {
  if (!keysOfKind) {
    return "the engine \"" + item["engine"].string() + "\" is unknown, so no file is loaded for it";
  }
  const std::string directory = KivResourceStorageModule::resourcesDirectoryPath() + "/";
  for (const std::string_view key : keysOfKind->files) {
    const std::string path = item[key].string();
    if (!path.starts_with(directory) && KivResourceLookup::fileExistsAtPath(path)) {
      return "\"" + path + "\" is a file of this machine, which is used as it is";
    }
  }
  return std::nullopt;
}

}  // namespace

ConfigurationCheck ConfigurationCheck::of(const kiv::Value& config,
                                          const std::optional<std::string>& id,
                                          const std::optional<std::string>& type) {
  ConfigurationCheck check;
  std::size_t place = 0;
  for (const kiv::Value& item : config.dictionary()["items"].array()) {
    ++place;
    const kiv::Dictionary& dictionary = item.dictionary();
    const auto keys = KivResourceFactory::requiredKeysOfEngine(dictionary["engine"].stringView());
    if (auto problem = KivResourceFactory::validateItem(item)) {
      check.unacceptable.push_back({place, std::move(*problem)});
      continue;
    }
    std::string resourceID = dictionary["banner_id"].string();
    const bool isSelected =
        (!id || resourceID == *id) && (!type || dictionary["type"].stringView() == *type);
    if (!isSelected) continue;
    if (auto remark = remarkOn(dictionary, keys)) check.odd.push_back({place, std::move(*remark)});
    check.resourceIDs.push_back(std::move(resourceID));
  }
  return check;
}

}  // namespace tool
