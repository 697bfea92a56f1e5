// The file is one line of JSON, which says what follows, and then the text as it came. Whatever
// else lies under the name is not touched until the next save replaces it.

#include "KivResource/configuration/KivConfigurationStore.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/system/SystemLog.h"
#include "KivPlatform/Foundation/values/JSON.h"
#include "KivPlatform/KivRESTService/partial/URLDigest.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/files/KivResourceCachePlace.h"

namespace kiv {

namespace {

constexpr std::string_view directory = "KivResource";
constexpr std::string_view fileName = "last_configuration";
constexpr std::uint64_t format = 1;
/// The limit on the bytes of the first line. Validators are short; an address may be long.
constexpr std::uint64_t largestHead = std::uint64_t{64} * 1024;

void logIgnored(std::string_view why) {
  std::string line = "KivConfigurationUpdater: the saved configuration \"";
  line.append(ConfigurationStore::path()).append("\" is not used: ").append(why).append(".");
  SystemLog::write(line);
}

std::string headOf(const KnownConfiguration& configuration, const std::string& address) {
  const KivRESTServiceValidators& validators = configuration.validators;
  return JSON::toCompactString(Dictionary{{"format", format},
                                          {"address", URLDigest(address).text()},
                                          {"bytes", std::uint64_t{configuration.text.size()}},
                                          {"url", URLDigest(validators.url).text()},
                                          {"etag", validators.entityTag},
                                          {"last_modified", validators.lastModified}});
}

bool isDigestOf(const Value& field, const std::string& url) {
  const auto digest = URLDigest::fromText(field.stringView());
  return digest && *digest == url;
}

/// Empty if they are of none of the addresses.
KivRESTServiceValidators validatorsFrom(const Dictionary& fields,
                                        const std::vector<std::string>& addresses) {
  const auto address =
      std::find_if(addresses.begin(), addresses.end(),
                   [&](const std::string& url) { return isDigestOf(fields["url"], url); });
  if (address == addresses.end()) return {};
  return {*address, fields["etag"].string(), fields["last_modified"].string()};
}

}  // namespace

ConfigurationStore::ConfigurationStore(std::vector<std::string> addresses, std::int64_t largest,
                                       std::shared_ptr<const CachePlace> place)
    : addresses_(std::move(addresses)),
      largest_(largest > 0 ? static_cast<std::uint64_t>(largest) : 0),
      place_(std::move(place)) {}

std::string ConfigurationStore::path() {
  if (KivStorageService::rootPath().empty()) return {};
  return KivStorageService::filePathForFileName_atRelativePath(fileName, directory);
}

std::optional<KnownConfiguration> ConfigurationStore::load() const {
  const CacheInUse cache(place_.get());
  FileManager& files = FileManager::defaultManager();
  const std::string file = path();
  if (file.empty() || !files.itemExistsAtPath(file)) return std::nullopt;
  const auto refuse = [](std::string_view why) {
    logIgnored(why);
    return std::nullopt;
  };
  const auto length = files.lengthOfFileAtPath(file);
  if (!length) return refuse("it is no regular file");
  if (*length > largest_ + largestHead) return refuse("it is too large");
  const auto contents = files.contentsAtPath(file);
  if (!contents) return refuse(contents.error().localizedDescription());

  const std::string_view bytes = contents->view();
  const auto lineEnd = bytes.substr(0, largestHead).find('\n');
  const bool hasHead = lineEnd != std::string_view::npos;
  const auto head = JSON::read(hasHead ? bytes.substr(0, lineEnd) : std::string_view());
  if (!head) return refuse("it does not begin as a saved configuration does");
  const Dictionary& fields = head->dictionary();
  if (fields["format"].unsignedInteger() != format) return refuse("it has another format");
  if (!isDigestOf(fields["address"], addresses_.front()))
    return refuse("it came from another address");
  const std::string_view text = bytes.substr(lineEnd + 1);
  if (text.size() > largest_) return refuse("it is too large");
  if (fields["bytes"].unsignedInteger() != text.size()) return refuse("it is not complete");
  return KnownConfiguration{Data(std::string(text)), validatorsFrom(fields, addresses_)};
}

std::optional<Error> ConfigurationStore::save(const KnownConfiguration& configuration) const {
  std::string bytes = headOf(configuration, addresses_.front());
  bytes.append(1, '\n').append(configuration.text.view());
  std::optional<Error> error;
  const CacheInUse cache(place_.get());
  KivStorageService::savePrivateData_forFileName_atRelativePath_error(Data(std::move(bytes)),
                                                                      fileName, directory, &error);
  return error;
}

}  // namespace kiv
