// The file is read where it is needed and not kept in memory. An entry names the version of the
// stored file that it is about, so an old entry, which an interrupted write or another process may
// have left, does no harm: its validators are not used.

#include "KivResource/revalidation/KivResourceFileOrigins.h"

#include <algorithm>
#include <utility>

#include "KivPlatform/Foundation/Contain.h"
#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/system/SystemLog.h"
#include "KivPlatform/Foundation/values/JSON.h"
#include "KivPlatform/KivRESTService/partial/URLDigest.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceConstants.h"
#include "KivResource/KivResourceStorageModule.h"

namespace kiv {

namespace {

constexpr std::string_view directory = "KivResource";
constexpr std::string_view fileName = "resources_validators.json";
constexpr std::uint64_t format = 1;
/// The limit on the bytes of the file: more than a hundred thousand resources need.
constexpr std::uint64_t largestFile = std::uint64_t{64} * 1024 * 1024;

constexpr std::string_view archiveSuffix = KivResouceArchiveKey[0];
constexpr std::string_view entryPage = KivResouceArchiveKey[1];

FileManager& files() {
  return FileManager::defaultManager();
}

void logProblem(std::string_view what, std::string_view why) {
  std::string line = "KivResourceManager: the validators of stored files in \"";
  line.append(FileOrigins::path()).append("\" ").append(what).append(": ").append(why).append(".");
  SystemLog::write(line);
}

// --- One entry -----------------------------------------------------------------------------------

Dictionary dictionaryOf(const FileOrigin& origin) {
  Dictionary entry{{"link", origin.link}};
  if (!origin.url.empty()) {
    entry.set("url", origin.url);
    entry.set("etag", origin.entityTag);
    entry.set("last_modified", origin.lastModified);
  }
  if (const auto& version = origin.version) {
    entry.set("file", Array{version->number, version->length, version->fraction});
  }
  if (const auto& archive = origin.archive) {
    entry.set("archive", Array{archive->length, archive->hash});
  }
  return entry;
}

FileOrigin originFrom(const Dictionary& entry) {
  FileOrigin origin;
  origin.link = entry["link"].string();
  origin.url = entry["url"].string();
  origin.entityTag = entry["etag"].string();
  origin.lastModified = entry["last_modified"].string();
  const Array& version = entry["file"].array();
  if (version.size() == 3) {
    origin.version = {version[0].unsignedInteger(), version[1].unsignedInteger(),
                      version[2].unsignedInteger()};
  }
  const Array& archive = entry["archive"].array();
  if (archive.size() == 2)
    origin.archive = {archive[0].unsignedInteger(), archive[1].unsignedInteger()};
  return origin;
}

/// Without a list of files the text is of another kind.
std::optional<FileOriginMap> originsFrom(const Value& root) {
  const Value& entries = root.dictionary()["files"];
  if (root.dictionary()["format"].unsignedInteger() != format || !entries.isArray()) {
    return std::nullopt;
  }
  FileOriginMap origins;
  for (const Value& entry : entries.array()) {
    FileOrigin origin = originFrom(entry.dictionary());
    std::string name(path::lastPathComponent(origin.link));
    if (!FileOrigins::pathOfStoredName(name)) continue;
    origins.insert_or_assign(std::move(name), std::move(origin));
  }
  return origins;
}

Value rootOf(const FileOriginMap& origins) {
  Array entries;
  for (const auto& [name, origin] : origins)
    entries.append(dictionaryOf(origin));
  return Dictionary{{"format", format}, {"files", std::move(entries)}};
}

/// One listing takes less time than a question for each.
void eraseMissing(FileOriginMap& origins) {
  auto names =
      files().contentsOfDirectoryAtPath(KivResourceStorageModule::resourcesDirectoryPath());
  if (!names) return;
  std::sort(names->begin(), names->end());
  std::erase_if(origins, [&](const auto& entry) {
    const auto place = KivResourceStorageModule::pathOfItemSavedWithName(entry.first);
    if (!place) return true;
    return !std::binary_search(names->begin(), names->end(), path::lastPathComponent(*place)) &&
           !files().itemExistsAtPath(*place);
  });
}

// --- The file ------------------------------------------------------------------------------------

FileOriginMap ignoreFile(std::string_view why) {
  logProblem("are not used", why);
  return {};
}

FileOriginMap readFile(const std::string& file) {
  if (file.empty() || !files().itemExistsAtPath(file)) return {};
  const auto length = files().lengthOfFileAtPath(file);
  if (!length) return ignoreFile("it is no regular file");
  if (*length > largestFile) return ignoreFile("it is too large");
  const auto contents = files().contentsAtPath(file);
  if (!contents) return ignoreFile(contents.error().localizedDescription());
  const auto root = JSON::read(*contents);
  auto origins = root ? originsFrom(*root) : std::nullopt;
  return origins ? *std::move(origins) : ignoreFile("it is not what the framework writes");
}

void writeFile(const FileOriginMap& origins) {
  std::optional<Error> error;
  const auto text = JSON::write(rootOf(origins)).reportTo(&error);
  if (text) {
    KivStorageService::savePrivateDataWithoutSync_forFileName_atRelativePath_error(
        *text, fileName, directory, &error);
  }
  if (error) logProblem("could not be written", error->localizedDescription());
}

}  // namespace

// --- Versions ------------------------------------------------------------------------------------

std::optional<StoredVersion> StoredVersion::ofFileAtPath(std::string_view path) {
  const auto identity = files().identityOfFileAtPath(path);
  if (!identity) return std::nullopt;
  constexpr std::int64_t second = 1'000'000'000;
  const auto fraction = static_cast<std::uint64_t>(identity->modified % second);
  return StoredVersion{identity->number, identity->length, fraction};
}

/// A piece at a time, and each hash is part of the next one's key. Not view(), since another
/// process may truncate a file that is mapped.
std::optional<ArchiveBytes> ArchiveBytes::of(const Data& data) {
  constexpr std::size_t pieceSize = std::size_t{256} * 1024;
  ArchiveBytes bytes{data.size(), 0};
  std::string piece(std::min(pieceSize, data.size()), '\0');
  for (std::size_t offset = 0; offset < data.size(); offset += piece.size()) {
    piece.resize(std::min(pieceSize, data.size() - offset));
    if (!data.copyBytes(offset, piece.data(), piece.size())) return std::nullopt;
    bytes.hash = keyedHash(piece, {bytes.hash, format});
  }
  return bytes;
}

void FileOrigin::setValidators(const KivRESTServiceValidators& validators) {
  const auto digest = URLDigest::fromText(url);
  const bool isKnown = digest && *digest == validators.url && entityTag == validators.entityTag &&
                       lastModified == validators.lastModified;
  if (isKnown) return;
  url = validators.isEmpty() ? std::string() : URLDigest(validators.url).text();
  entityTag = validators.entityTag;
  lastModified = validators.lastModified;
}

std::optional<KivRESTServiceValidators> FileOrigin::validatorsFor(const URL& address) const {
  const std::string& text = address.absoluteString();
  const auto digest = URLDigest::fromText(url);
  if (!digest || !(*digest == text)) return std::nullopt;
  KivRESTServiceValidators validators{text, entityTag, lastModified};
  return validators.isEmpty() ? std::nullopt : std::optional(std::move(validators));
}

// --- Names ---------------------------------------------------------------------------------------

std::string FileOrigins::path() {
  if (KivStorageService::rootPath().empty()) return {};
  return KivStorageService::filePathForFileName_atRelativePath(fileName, directory);
}

std::optional<std::string> FileOrigins::pathOfStoredName(std::string_view name) {
  auto item = KivResourceStorageModule::pathOfItemSavedWithName(name);
  if (item && name.ends_with(archiveSuffix)) item = path::appendingPathComponent(*item, entryPage);
  return item;
}

/// The spelling of the path may differ from that of the root today.
std::optional<std::string> FileOrigins::storedNameOfPath(std::string_view path) {
  const std::string_view parent = path::deletingLastPathComponent(path);
  std::string name(path::lastPathComponent(path));
  const auto isStoredAs = [&](const std::string& candidate) {
    const auto place = pathOfStoredName(candidate);
    return place && (*place == path || files().itemAtPath_isItemAtPath(*place, path));
  };
  if (name == entryPage) {
    std::string archive(path::lastPathComponent(parent));
    archive.append(archiveSuffix);
    if (isStoredAs(archive)) return archive;
  }
  return isStoredAs(name) ? std::optional(std::move(name)) : std::nullopt;
}

// --- Notes ---------------------------------------------------------------------------------------

void FileOrigins::noteStored(const std::string& link,
                             const std::optional<KivRESTServiceValidators>& validators,
                             const Data& data) {
  const std::string name(path::lastPathComponent(link));
  const auto place = pathOfStoredName(name);
  if (!place) return;
  FileOrigin origin;
  origin.link = link;
  origin.version = StoredVersion::ofFileAtPath(*place);
  if (validators) origin.setValidators(*validators);
  if (name.ends_with(archiveSuffix)) origin.archive = ArchiveBytes::of(data);
  found_.erase(name);
  stored_.insert_or_assign(name, std::move(origin));
}

void FileOrigins::noteFound(const std::string& link, std::string_view path) {
  const std::string name(path::lastPathComponent(link));
  if (pathOfStoredName(name) != path) return;
  const auto stored = stored_.find(name);
  if (stored != stored_.end()) {
    stored->second.link = link;
  } else {
    found_.insert_or_assign(name, link);
  }
}

void FileOrigins::note(const std::string& name, FileOrigin origin) {
  found_.erase(name);
  stored_.insert_or_assign(name, std::move(origin));
}

void FileOrigins::applyTo(FileOriginMap& origins) const {
  for (const auto& [name, origin] : stored_)
    origins.insert_or_assign(name, origin);
  for (const auto& [name, link] : found_)
    origins[name].link = link;
}

FileOriginMap FileOrigins::load() const {
  FileOriginMap origins = readFile(path());
  applyTo(origins);
  return origins;
}

void FileOrigins::save() noexcept {
  if (stored_.empty() && found_.empty()) return;
  if (contain([this] { write(); })) return;
  contain([] { logProblem("could not be written", "memory has run out"); });
}

void FileOrigins::write() {
  if (path().empty()) return;
  const auto lock = lock_.take();
  if (!lock) return;
  const FileOriginMap saved = readFile(path());
  FileOriginMap origins = saved;
  applyTo(origins);
  stored_.clear();
  found_.clear();
  eraseMissing(origins);
  if (origins != saved) writeFile(origins);
}

}  // namespace kiv
