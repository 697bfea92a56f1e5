// A list of 100,000 resources may be restored at each start and copied by queries. So strings share
// their characters with the dictionary, and only the dictionary is copied.

#include "KivResource/KivResourceObject.h"

#include <algorithm>
#include <map>
#include <typeindex>
#include <typeinfo>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivResource/files/KivResourceLookup.h"

namespace {

const kiv::Dictionary& contents(const std::shared_ptr<kiv::Dictionary>& dictionary) {
  static const kiv::Dictionary none;
  return dictionary ? *dictionary : none;
}

/// The string as a value. Reuses the given value if it is equal, to share its characters.
kiv::Value sharing(const kiv::Value& value, std::string_view string) {
  return value.isString() && value.stringView() == string ? value : kiv::Value(string);
}

kiv::Value uidOf(const kiv::Dictionary& dictionary) {
  // Never destroyed: other threads may create resources while the process exits.
  static const auto& undefined = *new kiv::Value("undefined");
  const kiv::Value& uid = dictionary["banner_uid"];
  return uid.isString() ? uid : undefined;
}

kiv::Value valueOf(const std::shared_ptr<kiv::Dictionary>& dictionary) {
  return dictionary ? kiv::Value(*dictionary) : kiv::Value();
}

/// The constructors of the hosts' kinds.
struct KnownConstructors {
  kiv::Mutex mutex;
  std::map<std::type_index, std::shared_ptr<KivResource> (*)()> constructors KIV_GUARDED_BY(mutex);
};

KnownConstructors& knownConstructors() {
  static auto& known = *new KnownConstructors;
  return known;
}

}  // namespace

KivResource::KivResource() = default;
KivResource::~KivResource() = default;

std::shared_ptr<KivResource> KivResource::initWithDictionary_engine(
    const kiv::Dictionary& dictionary, const std::string& engine) {
  return initialised(std::shared_ptr<KivResource>(new KivResource), dictionary, engine);
}

bool KivResource::isValidResourceDictionary(const kiv::Dictionary& dictionary) {
  const auto hasStringAt = [&](std::string_view key) { return hasString(dictionary, key); };
  const auto hasNumberAt = [&](std::string_view key) { return dictionary[key].isNumber(); };
  return std::all_of(requiredStrings.begin(), requiredStrings.end(), hasStringAt) &&
         std::all_of(requiredNumbers.begin(), requiredNumbers.end(), hasNumberAt);
}

bool KivResource::setUp(const kiv::Dictionary& dictionary, const std::string& engine) {
  if (!isValidResourceDictionary(dictionary)) return false;
  resourceDictionary_ = std::make_shared<kiv::Dictionary>(dictionary);
  name_ = dictionary["name"];
  type_ = dictionary["type"];
  engine_ = sharing(dictionary["engine"], engine);
  resourceID_ = dictionary["banner_id"];
  uid_ = uidOf(dictionary);
  priority_ = dictionary["priority"].unsignedInteger();
  updated_ = dictionary["updated"].unsignedInteger();
  return true;
}

std::shared_ptr<KivResource> KivResource::emptyInstance() const {
  return std::shared_ptr<KivResource>(new KivResource);
}

std::shared_ptr<KivResource> KivResource::copyWithZone(void* /*zone*/) const {
  auto copy = instanceOfOwnClass();
  return copy ? initialised(std::move(copy), contents(resourceDictionary_), engine()) : nullptr;
}

bool KivResource::isCopyable() const {
  return instanceOfOwnClass() != nullptr;
}

std::shared_ptr<KivResource> KivResource::instanceOfOwnClass() const {
  auto instance = emptyInstance();
  if (!instance) return nullptr;
  // A class that inherits emptyInstance() would get an instance of its base.
  const KivResource& made = *instance;
  if (typeid(made) == typeid(*this)) return instance;
  KnownConstructors& known = knownConstructors();
  const kiv::MutexLock lock(known.mutex);
  const auto found = known.constructors.find(typeid(*this));
  return found == known.constructors.end() ? nullptr : found->second();
}

bool KivResource::noteConstructor(const std::type_info& type, Constructor constructor) {
  KnownConstructors& known = knownConstructors();
  const kiv::MutexLock lock(known.mutex);
  return known.constructors.emplace(type, constructor).second;
}

bool KivResource::filesExist() const {
  return true;
}

std::vector<std::string> KivResource::missingFilesLinks() const {
  return {};
}

std::vector<std::string> KivResource::useFilePaths() const {
  return {};
}

void KivResource::setPath(const std::string& /*path*/) {}

bool KivResource::looksForOwnFilesOnly() const {
  return typeid(*this) == typeid(KivResource);
}

std::optional<kiv::Value> KivResource::valueForProperty(std::string_view name) const {
  if (name == "name") return name_;
  if (name == "type") return type_;
  if (name == "engine") return engine_;
  if (name == "resourceID") return resourceID_;
  if (name == "uid") return uid_;
  if (name == "priority") return priority_;
  if (name == "updated") return updated_;
  if (name == "resourceDictionary") return valueOf(resourceDictionary_);
  if (name == "options") return valueOf(options_);
  return std::nullopt;
}

bool KivResource::hasString(const kiv::Dictionary& dictionary, std::string_view key) {
  return dictionary[key].isString();
}

bool KivResource::fileExistsAt(const kiv::Value& path) {
  return path.isString() && KivResourceLookup::fileExistsAtPath(path.stringView());
}

std::vector<std::string> KivResource::listOf(const kiv::Value& string) {
  if (!string.isString()) return {};
  return {string.string()};
}

std::optional<std::string> KivResource::optionalString(const kiv::Value& string) {
  if (!string.isString()) return std::nullopt;
  return string.string();
}

const kiv::Value& KivResource::linkForKey(std::string_view key) const {
  return contents(resourceDictionary_)[key];
}

void KivResource::recordPath_forKey(const kiv::Value& path, std::string_view key) {
  if (linkForKey(key) == path) return;
  if (!resourceDictionary_) resourceDictionary_ = std::make_shared<kiv::Dictionary>();
  resourceDictionary_->set(key, path);
}
