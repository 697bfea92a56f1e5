#include "Tools/kivresource/ConfigurationCheck.h"

#include <map>
#include <string_view>
#include <vector>

namespace tool {

namespace {

using Keys = std::vector<std::string_view>;

/// The strings that an item of each engine has beside those that all have.
const Keys& keysOfEngine(std::string_view engine) {
  static const std::map<std::string_view, Keys> keys{
      {"eco_standard", {"market_url", "image_728x90"}},
      {"eco_video", {"title", "market_url", "image", "video_file_landscape"}},
      {"eco_fs", {"html"}},
      {"eco_context", {"html"}},
  };
  static const Keys none;
  const auto found = keys.find(engine);
  return found == keys.end() ? none : found->second;
}

std::string validateKey(const kiv::Dictionary& item, std::string_view key,
                        std::string_view wanted) {
  const std::string quoted = "\"" + std::string(key) + "\"";
  if (item[key].isNull()) return "lacks " + quoted + ", a " + std::string(wanted);
  return "has no " + std::string(wanted) + " under " + quoted;
}

bool isOfKnownKind(const KivResource& resource) {
  return dynamic_cast<const KivResourceStandard*>(&resource) ||
         dynamic_cast<const KivResourceVideo*>(&resource) ||
         dynamic_cast<const KivResourceWeb*>(&resource);
}

}  // namespace

std::string validateItem(const kiv::Value& item) {
  if (!item.isDictionary()) return "is no JSON object";
  const kiv::Dictionary& dictionary = item.dictionary();
  Keys strings{"engine", "name", "type", "banner_id"};
  const Keys& ofEngine = keysOfEngine(dictionary["engine"].stringView());
  strings.insert(strings.end(), ofEngine.begin(), ofEngine.end());
  for (const std::string_view key : strings) {
    if (!dictionary[key].isString()) return validateKey(dictionary, key, "string");
  }
  for (const std::string_view key : {"priority", "updated"}) {
    if (!dictionary[key].isNumber()) return validateKey(dictionary, key, "number");
  }
  return "is not acceptable";
}

std::string remarkOn(const KivResource& resource) {
  if (!isOfKnownKind(resource)) {
    return "the engine \"" + resource.engine() + "\" is unknown, so no file is loaded for it";
  }
  const std::string directory = KivResourceStorageModule::resourcesDirectoryPath() + "/";
  for (const std::string& path : resource.useFilePaths()) {
    if (!path.starts_with(directory)) {
      return "\"" + path + "\" is a file of this machine, which is used as it is";
    }
  }
  return {};
}

}  // namespace tool
