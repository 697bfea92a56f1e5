// The two files are told apart by the last component of their links. If both names are equal, one
// stored file is used for both.

#include "KivResource/KivResourceVideo.h"

#include "KivPlatform/Foundation/files/Path.h"

using kiv::path::lastPathComponent;

namespace {

using kiv::StringList;

constexpr std::string_view titleKey = "title";
constexpr std::string_view marketLinkKey = "market_url";
constexpr std::string_view iconKey = "image";
constexpr std::string_view landscapeVideoKey = "video_file_landscape";
constexpr std::string_view portraitVideoKey = "video_file_portrait";

const StringList& contents(const std::shared_ptr<StringList>& list) {
  static const auto& none = *new StringList;
  return list ? *list : none;
}

kiv::Value valueOf(const std::shared_ptr<StringList>& list) {
  return list ? kiv::Value(list->values()) : kiv::Value();
}

}  // namespace

std::shared_ptr<KivResourceVideo> KivResourceVideo::initWithDictionary_engine(
    const kiv::Dictionary& dictionary, const std::string& engine) {
  return initialised(std::shared_ptr<KivResourceVideo>(new KivResourceVideo), dictionary, engine);
}

std::shared_ptr<KivResource> KivResourceVideo::emptyInstance() const {
  return std::shared_ptr<KivResource>(new KivResourceVideo);
}

bool KivResourceVideo::setUp(const kiv::Dictionary& dictionary, const std::string& engine) {
  if (!KivResource::setUp(dictionary, engine)) return false;
  selectRequiredVideoField();
  if (!isValidResourceVideoDictionary(dictionary)) return false;
  fileLinks_ = std::make_shared<StringList>();
  filePaths_ = std::make_shared<StringList>();
  title_ = dictionary[titleKey];
  marketLink_ = dictionary[marketLinkKey];
  icon_ = findFile(dictionary[iconKey]);
  const std::string_view field = requiredVideoField_.stringView();
  resourceDictionary()->remove(field == portraitVideoKey ? landscapeVideoKey : portraitVideoKey);
  video_ = findFile(dictionary[field]);
  votes_ = dictionary["votes"].unsignedInteger();
  rating_ = static_cast<double>(dictionary["rating"].singlePrecision());
  return true;
}

kiv::KindKeys KivResourceVideo::requiredKeys() {
  return {{titleKey, marketLinkKey, iconKey, landscapeVideoKey}, {iconKey, landscapeVideoKey}};
}

bool KivResourceVideo::isValidResourceVideoDictionary(const kiv::Dictionary& dictionary) const {
  return hasString(dictionary, titleKey) && hasString(dictionary, marketLinkKey) &&
         hasString(dictionary, iconKey) && hasString(dictionary, requiredVideoField_.stringView());
}

void KivResourceVideo::selectRequiredVideoField() {
  // One string for all resources, never destroyed, as threads may outlive the program's main part.
  static const auto& landscapeVideo = *new kiv::Value(landscapeVideoKey);
  requiredVideoField_ = landscapeVideo;
}

kiv::Value KivResourceVideo::findFile(const kiv::Value& pathOrLink) {
  const bool present = fileExistsAt(pathOrLink);
  (present ? filePaths_ : fileLinks_)->push_back(pathOrLink);
  return present ? pathOrLink : kiv::Value();
}

bool KivResourceVideo::filesExist() const {
  return fileExistsAt(icon_) && fileExistsAt(video_);
}

std::vector<std::string> KivResourceVideo::missingFilesLinks() const {
  return contents(fileLinks_).strings();
}

std::vector<std::string> KivResourceVideo::useFilePaths() const {
  return contents(filePaths_).strings();
}

void KivResourceVideo::setPath(const std::string& path) {
  const kiv::Value stored(path);
  if (!fileExistsAt(stored)) return;
  // Both are checked: icon and video may have the same file name.
  takeFile_forKey(stored, iconKey, icon_);
  takeFile_forKey(stored, requiredVideoField_.stringView(), video_);
}

bool KivResourceVideo::looksForOwnFilesOnly() const {
  return typeid(*this) == typeid(KivResourceVideo);
}

void KivResourceVideo::takeFile_forKey(const kiv::Value& path, std::string_view key,
                                       kiv::Value& property) {
  const std::string_view fileName = lastPathComponent(path.stringView());
  if (lastPathComponent(linkForKey(key).stringView()) != fileName) return;
  removeLinkForFileName(std::string(fileName));
  addPathValue(path);
  update(property, path);
  recordPath_forKey(path, key);
}

void KivResourceVideo::removeLinkForFileName(const std::string& fileName) {
  auto others = std::make_shared<StringList>();
  const StringList& links = contents(fileLinks_);
  for (const kiv::Value& link : links.values()) {
    if (!link.stringView().ends_with(fileName)) others->push_back(link);
  }
  if (others->size() != links.size()) fileLinks_ = std::move(others);
}

void KivResourceVideo::addPath(const std::string& path) {
  addPathValue(kiv::Value(path));
}

void KivResourceVideo::addPathValue(const kiv::Value& path) {
  if (contents(filePaths_).contains(path.stringView())) return;
  if (!filePaths_) setFilePaths(std::make_shared<StringList>());
  filePaths_->push_back(path);
}

void KivResourceVideo::setFilePaths(std::shared_ptr<kiv::StringList> filePaths) {
  if (filePaths) filePaths->changeFlags().add(changeFlags());
  filePaths_ = std::move(filePaths);
  noteChange();
}

void KivResourceVideo::setOnChange(const std::shared_ptr<kiv::ChangeFlag>& flag) {
  KivResource::setOnChange(flag);
  if (filePaths_) filePaths_->changeFlags().add(flag);
}

std::optional<kiv::Value> KivResourceVideo::valueForProperty(std::string_view name) const {
  if (name == "title") return title_;
  if (name == "marketLink") return marketLink_;
  if (name == "icon") return icon_;
  if (name == "video") return video_;
  if (name == "votes") return votes_;
  if (name == "rating") return rating_;
  if (name == "fileLinks") return valueOf(fileLinks_);
  if (name == "filePaths") return valueOf(filePaths_);
  if (name == "requiredVideoField") return requiredVideoField_;
  return KivResource::valueForProperty(name);
}
