#include "KivResource/KivResourceStandard.h"

#include "KivPlatform/Foundation/files/Path.h"

namespace {

constexpr std::string_view marketLinkKey = "market_url";
constexpr std::string_view wideImageKey = "image_728x90";
constexpr std::string_view smallImageKey = "image_320x50";

}  // namespace

std::shared_ptr<KivResourceStandard> KivResourceStandard::initWithDictionary_engine(
    const kiv::Dictionary& dictionary, const std::string& engine) {
  return initialised(std::shared_ptr<KivResourceStandard>(new KivResourceStandard), dictionary,
                     engine);
}

std::shared_ptr<KivResource> KivResourceStandard::emptyInstance() const {
  return std::shared_ptr<KivResource>(new KivResourceStandard);
}

bool KivResourceStandard::setUp(const kiv::Dictionary& dictionary, const std::string& engine) {
  if (!KivResource::setUp(dictionary, engine)) return false;
  setRequiredFieldsForResource();
  if (!isValidResourceStandardDictionary(dictionary)) return false;
  marketLink_ = dictionary[marketLinkKey];
  const std::string_view field = requiredImageField_.stringView();
  resourceDictionary()->remove(field == smallImageKey ? wideImageKey : smallImageKey);
  const kiv::Value& image = dictionary[field];
  fileIsLoaded_ = fileExistsAt(image);
  image_ = fileIsLoaded_ ? image : kiv::Value();
  return true;
}

kiv::KindKeys KivResourceStandard::requiredKeys() {
  return {{marketLinkKey, wideImageKey}, {wideImageKey}};
}

bool KivResourceStandard::isValidResourceStandardDictionary(
    const kiv::Dictionary& dictionary) const {
  return hasString(dictionary, marketLinkKey) &&
         hasString(dictionary, requiredImageField_.stringView());
}

void KivResourceStandard::setRequiredFieldsForResource() {
  // One string for all resources, never destroyed, as threads may outlive the program's main part.
  static const auto& wideImage = *new kiv::Value(wideImageKey);
  requiredImageField_ = wideImage;
}

bool KivResourceStandard::filesExist() const {
  return fileExistsAt(image_);
}

std::vector<std::string> KivResourceStandard::missingFilesLinks() const {
  if (fileIsLoaded_) return {};
  return listOf(linkForKey(requiredImageField_.stringView()));
}

std::vector<std::string> KivResourceStandard::useFilePaths() const {
  if (!fileIsLoaded_) return {};
  return listOf(image_);
}

void KivResourceStandard::setPath(const std::string& path) {
  using kiv::path::lastPathComponent;
  const std::string_view field = requiredImageField_.stringView();
  if (lastPathComponent(linkForKey(field).stringView()) != lastPathComponent(path)) return;
  const kiv::Value stored(path);
  if (!fileExistsAt(stored)) return;
  update(fileIsLoaded_, true);
  recordPath_forKey(stored, field);
  update(image_, stored);
}

bool KivResourceStandard::looksForOwnFilesOnly() const {
  return typeid(*this) == typeid(KivResourceStandard);
}

std::optional<kiv::Value> KivResourceStandard::valueForProperty(std::string_view name) const {
  if (name == "marketLink") return marketLink_;
  if (name == "image") return image_;
  if (name == "fileIsLoaded") return fileIsLoaded_;
  if (name == "requiredImageField") return requiredImageField_;
  return KivResource::valueForProperty(name);
}
