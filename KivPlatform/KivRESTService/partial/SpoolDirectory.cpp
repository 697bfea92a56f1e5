// File names are hashes of URLs, because a URL may be too long for a name or contain a secret. Each
// name has several slots, since two URLs may have the same hash and several clients may fetch the
// same URL.

#include "KivPlatform/KivRESTService/partial/SpoolDirectory.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/files/RemovalGuard.h"
#include "KivPlatform/KivRESTService/http/HeaderFields.h"
#include "KivPlatform/KivRESTService/partial/PartialBody.h"
#include "KivPlatform/KivRESTService/partial/URLDigest.h"

namespace kiv {

namespace {

/// The number of slots for one name.
constexpr int slots = 16;

FileManager& files() {
  return FileManager::defaultManager();
}

/// A short name for the URL, the same in every process. The key is public, so names may collide.
/// That is harmless: the record identifies the URL, and at worst a download is not resumed.
std::string nameFor(std::string_view url) {
  constexpr HashKey key{0x6b69762e73706f6f, 0x6c2e6e616d657300};
  char digits[16];
  const auto [end, problem] =
      std::to_chars(std::begin(digits), std::end(digits), keyedHash(url, key), 16);
  return {std::begin(digits), end};
}

/// True if stem() can return that name (without the directory).
bool isStemName(std::string_view name) {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto dash = name.find('-');
  if (dash == name.npos || dash == 0 || dash > 16) return false;
  if (name.substr(0, dash).find_first_not_of(digits) != name.npos) return false;
  const std::string_view slot = name.substr(dash + 1);
  int number = -1;
  std::from_chars(slot.data(), slot.data() + slot.size(), number);
  return number >= 0 && number < slots && slot == std::to_string(number);
}

std::string_view nameOfStem(std::string_view stem) {
  const std::string_view file = path::lastPathComponent(stem);
  return file.substr(0, file.find('-'));
}

struct KeptBody {
  std::int64_t date;
  std::int64_t length;
  std::string stem;
};

/// The partial body at the stem; nothing if it is in use, is too old or cannot be resumed. In the
/// latter cases it is removed.
std::optional<KeptBody> keptBody(const std::string& stem, std::int64_t oldest) {
  const auto body = PartialBody::lock(stem);
  if (!body) return std::nullopt;
  PartialBody& kept = **body;
  kept.readRecord();
  if (kept.record() && kept.length() > 0 && kept.record()->date >= oldest) {
    return KeptBody{kept.record()->date, kept.length(), stem};
  }
  kept.discard();
  return std::nullopt;
}

void remove(const std::string& stem) {
  if (const auto body = PartialBody::lock(stem)) (*body)->discard();
}

/// True for the name of a file that the client creates. The directory may contain other files,
/// because the host may have chosen an existing one.
bool isOwnName(std::string_view name) {
  return isStemName(PartialBody::stemOfName(name));
}

std::set<std::string> stemsOf(const std::vector<std::string>& names, const std::string& directory) {
  std::set<std::string> stems;
  for (const auto& name : names) {
    if (!isOwnName(name)) continue;
    stems.insert(path::appendingPathComponent(directory, PartialBody::stemOfName(name)));
  }
  return stems;
}

}  // namespace

SpoolDirectory::SpoolDirectory(const TransferSettings& settings)
    : settings_(settings), path_(settings.spoolDirectory) {
  if (!path_.empty()) removal::addPrivateDirectory(path_);
}

std::string SpoolDirectory::stem(const std::string& name, int slot) const {
  return path::appendingPathComponent(path_, name + "-" + std::to_string(slot));
}

bool SpoolDirectory::knows(const std::string& name) const {
  const MutexLock lock(namesMutex_);
  return names_.contains(name);
}

void SpoolDirectory::know(const std::string& name) {
  const MutexLock lock(namesMutex_);
  names_.insert(name);
}

std::unique_ptr<PartialBody> SpoolDirectory::find(const URL& url) const {
  const std::string name = nameFor(url.absoluteString());
  if (!knows(name)) return nullptr;
  for (int slot = 0; slot < slots; ++slot) {
    const std::string place = stem(name, slot);
    if (!PartialBody::hasRecord(place)) continue;
    auto locked = PartialBody::lock(place);
    if (!locked) continue;
    std::unique_ptr<PartialBody> body = *std::move(locked);
    body->readRecord();
    const bool isIt = body->record() && body->record()->url == url.absoluteString();
    if (isIt && body->length() > 0) return body;
    if (!body->record()) body->discard();
  }
  return nullptr;
}

/// Does not change the mode of an existing directory, which the host may share with other programs;
/// sweep() decides about that.
Status SpoolDirectory::makeDirectory() const {
  return files().itemExistsAtPath(path_) ? files().createDirectoryAtPath(path_)
                                         : files().createPrivateDirectoryAtPath(path_);
}

Result<std::unique_ptr<PartialBody>> SpoolDirectory::create(const URL& url) {
  if (Status status = makeDirectory(); !status) return status;
  const std::string name = nameFor(url.absoluteString());
  for (int slot = 0;; ++slot) {
    auto body = PartialBody::lock(stem(name, slot));
    if (body) know(name);
    if (body || slot + 1 == slots) return body;
  }
}

void SpoolDirectory::forget(const URL& url) const {
  if (const auto body = find(url)) body->discard();
}

void SpoolDirectory::sweep() {
  if (!isUsable() || !files().directoryExistsAtPath(path_)) return;
  const auto names = files().contentsOfDirectoryAtPath(path_).value_or(std::vector<std::string>());
  // Earlier versions created the directory with permissions for others. A directory that contains
  // only our files is taken for one of these.
  if (std::all_of(names.begin(), names.end(), isOwnName)) files().makePrivateItemAtPath(path_);
  const auto age = std::chrono::duration_cast<std::chrono::seconds>(settings_.longestPartialAge);
  std::vector<KeptBody> kept;
  std::int64_t total = 0;
  for (const auto& stem : stemsOf(names, path_)) {
    auto body = keptBody(stem, secondsNow() - age.count());
    know(std::string(nameOfStem(stem)));
    if (!body) continue;
    total += body->length;
    kept.push_back(std::move(*body));
  }
  std::sort(kept.begin(), kept.end(),
            [](const KeptBody& a, const KeptBody& b) { return a.date < b.date; });
  for (const auto& body : kept) {
    if (total <= settings_.largestPartials) return;
    remove(body.stem);
    total -= body.length;
  }
}

}  // namespace kiv
