#include "KivSession/ResourceJSON.h"

#include <array>
#include <span>
#include <string_view>
#include <utility>

namespace kiv::session {

namespace {

/// The name and the additional properties of a resource class, in order of declaration.
struct Kind {
  const char* name = "KivResource";
  std::span<const std::string_view> properties;
};

Kind kindOf(const KivResource& resource) {
  static constexpr std::array<std::string_view, 4> standard{"marketLink", "image", "fileIsLoaded",
                                                            "requiredImageField"};
  static constexpr std::array<std::string_view, 9> video{
      "title",     "marketLink",        "icon", "video", "votes", "rating", "fileLinks",
      "filePaths", "requiredVideoField"};
  static constexpr std::array<std::string_view, 2> web{"html", "fileIsLoaded"};
  if (dynamic_cast<const KivResourceStandard*>(&resource)) return {"KivResourceStandard", standard};
  if (dynamic_cast<const KivResourceVideo*>(&resource)) return {"KivResourceVideo", video};
  if (dynamic_cast<const KivResourceWeb*>(&resource)) return {"KivResourceWeb", web};
  return {};
}

Array arrayOf(const std::vector<std::string>& strings) {
  Array array;
  for (const auto& string : strings)
    array.append(string);
  return array;
}

void appendCompact(std::string& text, const Value& value) {
  if (value.isArray()) {
    char opening = '[';
    for (const auto& element : value.array()) {
      text += std::exchange(opening, ',');
      appendCompact(text, element);
    }
    text += value.array().empty() ? "[]" : "]";
  } else if (value.isDictionary()) {
    char opening = '{';
    for (const auto& entry : value.dictionary()) {
      text += std::exchange(opening, ',');
      text.append(JSON::toCompactString(entry.key())).append(1, ':');
      appendCompact(text, entry.value);
    }
    text += value.dictionary().empty() ? "{}" : "}";
  } else {
    text += JSON::toCompactString(value);
  }
}

}  // namespace

Dictionary resourceJSON(const KivResource& resource) {
  const Kind kind = kindOf(resource);
  const auto& dictionary = resource.resourceDictionary();
  Dictionary json{
      {"class", kind.name},
      {"resourceID", resource.resourceID()},
      {"name", resource.name()},
      {"type", resource.type()},
      {"engine", resource.engine()},
      {"uid", resource.uid()},
      {"priority", resource.priority()},
      {"updated", resource.updated()},
      {"filesExist", resource.filesExist()},
      {"missingFilesLinks", arrayOf(resource.missingFilesLinks())},
      {"useFilePaths", arrayOf(resource.useFilePaths())},
      {"resourceDictionary", dictionary ? *dictionary : Dictionary()},
  };
  // Read by name, since the getters of lists return mutable objects.
  for (const auto property : kind.properties) {
    json.set(property, resource.valueForProperty(property).value_or(nullptr));
  }
  return json;
}

Array resourcesJSON(const ResourceArray& resources) {
  Array array;
  for (const auto& resource : resources)
    array.append(resourceJSON(*resource));
  return array;
}

Value errorJSON(const std::optional<Error>& error) {
  if (!error) return nullptr;
  return Dictionary{
      {"domain", error->domain}, {"code", error->code}, {"message", error->localizedDescription()}};
}

std::string compactJSON(const Value& value) {
  std::string text;
  appendCompact(text, value);
  return text;
}

}  // namespace kiv::session
