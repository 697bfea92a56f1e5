// The client and its rules are those of the passes. Neither the registry nor the count of downloads
// changes, so passes may run meanwhile; before a file is replaced, it is looked at again.

#include "KivResource/revalidation/KivResourceRevalidation.h"

#include <algorithm>
#include <string_view>

#include "KivPlatform/Foundation/Contain.h"
#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/system/SystemLog.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceConstants.h"
#include "KivResource/KivResourceObject.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/passes/KivResourceReportJob.h"

namespace kiv {

namespace {

constexpr std::string_view archiveSuffix = KivResouceArchiveKey[0];

void logFile(std::string_view what, std::string_view link, std::string_view rest) {
  std::string line = "KivResourceManager (-[KivResourceManager revalidate]): ";
  line.append(what).append(" \"").append(path::lastPathComponent(link)).append("\"").append(rest);
  SystemLog::write(line);
}

/// The validators of one of the servers; nothing if they are of another one, or if there are none.
std::optional<KivRESTServiceValidators> validatorsFor(const KivResourceRESTModule& loader,
                                                      const FileOrigin& origin) {
  std::vector<URL> addresses = loader.mirrorURLsForFileWithLink(origin.link);
  if (const auto main = loader.mainURLForFileWithLink(origin.link)) addresses.push_back(*main);
  for (const URL& address : addresses) {
    if (auto validators = origin.validatorsFor(address)) return validators;
  }
  return std::nullopt;
}

/// True if the file at the path has those bytes. Neither is read through a mapping: another process
/// may truncate it.
bool fileHasBytes(std::string_view path, const Data& data) {
  constexpr std::size_t pieceSize = std::size_t{256} * 1024;
  const auto file = FileManager::defaultManager().mapFileAtPath(path);
  const std::size_t size = data.size();
  if (!file || (*file)->bytes().size() != size) return false;
  std::string stored(std::min(pieceSize, size), '\0');
  std::string come(stored.size(), '\0');
  for (std::size_t offset = 0; offset < size; offset += stored.size()) {
    stored.resize(std::min(pieceSize, size - offset));
    come.resize(stored.size());
    if (!(*file)->copyBytes(offset, stored.data(), stored.size())) return false;
    if (!data.copyBytes(offset, come.data(), come.size()) || stored != come) return false;
  }
  return true;
}

}  // namespace

// --- Requests ------------------------------------------------------------------------------------

/// A question about one file. If the client drops it without an answer, it was cancelled.
class Revalidation::Request {
 public:
  Request(std::weak_ptr<Revalidation> revalidation, std::shared_ptr<const QueueAssertion> queue,
          std::size_t filePlace)
      : place(filePlace), revalidation_(std::move(revalidation)), queue_(std::move(queue)) {}
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  /// The client may be destroyed on any thread.
  ~Request() {
    if (isAnswered_) return;
    postReport(*queue_, [owner = revalidation_, filePlace = place] {
      if (const auto revalidation = owner.lock()) revalidation->noteCancellation(filePlace);
    });
  }

  void noteTask(const KivRESTServiceTask& task) noexcept {
    constexpr std::int64_t notModified = 304;
    isComplete = contain([&] {
      statusCode = task.response() ? task.response()->statusCode() : 0;
      validators = task.returnedValidators();
      isUnchanged = statusCode == notModified && validators;
      metrics = task.metrics();
    });
  }
  void answer(const std::optional<Data>& data, const std::optional<Error>& error) {
    isAnswered_ = true;
    if (const auto revalidation = revalidation_.lock()) revalidation->answer(*this, data, error);
  }

  const std::size_t place;
  bool isComplete = true;  ///< False if memory ran out for what follows.
  std::int64_t statusCode = 0;
  bool isUnchanged = false;
  std::optional<KivRESTServiceValidators> validators;
  KivRESTServiceMetrics metrics;

 private:
  const std::weak_ptr<Revalidation> revalidation_;
  const std::shared_ptr<const QueueAssertion> queue_;
  bool isAnswered_ = false;
};

// --- Files ---------------------------------------------------------------------------------------

Revalidation::Revalidation(RevalidationManager manager, KivResourceRevalidationHandler handler)
    : manager_(std::move(manager)), handler_(std::move(handler)) {}

void Revalidation::prepare(const ResourceArray& resources) {
  for (const auto& resource : resources) {
    for (std::string& path : resource->useFilePaths())
      addFile(std::move(path), resource);
  }
  const FileOriginMap origins = manager_.origins->load();
  for (const auto& [name, place] : places_)
    look(name, place, origins);
}

void Revalidation::addFile(std::string path, const std::shared_ptr<KivResource>& resource) {
  const auto [entry, isNew] =
      places_.emplace(FileOrigins::storedNameOfPath(path).value_or(path), files_.size());
  if (isNew) {
    files_.emplace_back().resource = resource;
    report_.files.emplace_back().path = std::move(path);
  }
  File& file = files_[entry->second];
  if (resource->priority() > file.resource->priority()) file.resource = resource;
  auto& resourceIDs = report_.files[entry->second].resourceIDs;
  if (std::find(resourceIDs.begin(), resourceIDs.end(), resource->resourceID()) ==
      resourceIDs.end()) {
    resourceIDs.push_back(resource->resourceID());
  }
}

/// Decides whether the file is asked about. What is known of another version of it does not count.
void Revalidation::look(const std::string& name, std::size_t place, const FileOriginMap& origins) {
  File& file = files_[place];
  KivResourceRevalidationFile& entry = report_.files[place];
  const auto found = origins.find(name);
  if (found == origins.end()) {
    entry.outcome = Outcome::unknown;
    return;
  }
  entry.link = found->second.link;
  file.version = StoredVersion::ofFileAtPath(entry.path);
  if (!file.version) {
    entry.outcome = Outcome::removed;
    return;
  }
  if (found->second.version == file.version) {
    file.origin = found->second;
  } else {
    file.origin.link = entry.link;
  }
  file.isPending = true;
  ++pending_;
}

void Revalidation::ask(const std::shared_ptr<KivResourceRESTModule>& loader) {
  for (std::size_t place = 0; place < files_.size(); ++place) {
    if (files_[place].isPending && !contain([&] { ask(place, loader); })) {
      failForLackOfMemory(place);
    }
  }
  isBegun_ = true;
}

void Revalidation::ask(std::size_t place, const std::shared_ptr<KivResourceRESTModule>& loader) {
  if (!loader) return fail(place, KivResourceRESTModule::createRequestError());
  const FileOrigin& origin = files_[place].origin;
  const auto request = std::make_shared<Request>(weak_from_this(), manager_.queue, place);
  loader->loadDataForResource_usingFileLink_validators_taskHandler_completionHandler(
      files_[place].resource, origin.link, validatorsFor(*loader, origin),
      [request](const KivRESTServiceTask& task) { request->noteTask(task); },
      [request](const std::optional<Data>& data, const std::optional<Error>& error) {
        request->answer(data, error);
      });
}

// --- Answers -------------------------------------------------------------------------------------

void Revalidation::answer(const Request& request, const std::optional<Data>& data,
                          const std::optional<Error>& error) {
  manager_.step([&] {
    if (!isPending(request.place)) return;
    const bool isTaken = request.isComplete && contain([&] { conclude(request, data, error); });
    if (!isTaken) failForLackOfMemory(request.place);
  });
}

void Revalidation::conclude(const Request& request, const std::optional<Data>& data,
                            const std::optional<Error>& error) {
  KivResourceRevalidationFile& entry = report_.files[request.place];
  entry.statusCode = request.statusCode;
  entry.metrics = request.metrics;
  if (!request.isUnchanged && (error || !data)) return fail(request.place, error);
  if (!isStillUsed(request.place)) return setOutcome(request.place, Outcome::removed);
  if (!request.isUnchanged && !isSame(request.place, *data)) return replace(request, *data);
  learn(request, data);
  setOutcome(request.place, Outcome::unchanged);
}

bool Revalidation::isStillUsed(std::size_t place) const {
  const std::string& path = report_.files[place].path;
  return StoredVersion::ofFileAtPath(path) == files_[place].version &&
         !manager_.registry().resourcesWithPath(path).empty();
}

bool Revalidation::isSame(std::size_t place, const Data& data) const {
  const FileOrigin& origin = files_[place].origin;
  if (!origin.link.ends_with(archiveSuffix)) return fileHasBytes(report_.files[place].path, data);
  return origin.archive && ArchiveBytes::of(data) == origin.archive;
}

/// The bytes are written before the lock is taken, since an archive may take long.
void Revalidation::replace(const Request& request, const Data& data) {
  const std::size_t place = request.place;
  const std::string& link = files_[place].origin.link;
  KivStorageService::Batch batch;
  std::optional<Error> error;
  auto staged = KivResourceStorageModule::stageData_withResourceFileName_inBatch_error(
      data, path::lastPathComponent(link), batch, &error);
  if (!staged) return fail(place, error);
  bool isUsed = false;
  bool isStored = false;
  manager_.withLock([&] {
    isUsed = isStillUsed(place);
    isStored = isUsed && staged->commit(&error) && batch.end(&error);
  });
  if (!isUsed) return setOutcome(place, Outcome::removed);
  if (!isStored) return fail(place, error);
  learn(request, data);
  setOutcome(place, Outcome::replaced);
  logFile("Replaced the file", link, ", which has changed on the server.");
}

/// Called with the data if they came, which are those of the stored file now.
void Revalidation::learn(const Request& request, const std::optional<Data>& data) {
  File& file = files_[request.place];
  FileOrigin origin = file.origin;
  origin.version = StoredVersion::ofFileAtPath(report_.files[request.place].path);
  const bool isArchive = origin.link.ends_with(archiveSuffix);
  if (data && isArchive) origin.archive = ArchiveBytes::of(*data);
  origin.setValidators(request.validators.value_or(KivRESTServiceValidators()));
  file.isLearnt = origin != file.origin;
  file.origin = std::move(origin);
}

void Revalidation::fail(std::size_t place, const std::optional<Error>& error) {
  KivResourceRevalidationFile& entry = report_.files[place];
  entry.error = error;
  setOutcome(place, Outcome::failed);
  logFile("Error revalidating the file", entry.link,
          ". Error: " + (error ? error->description() : std::string("(null)")));
}

void Revalidation::failForLackOfMemory(std::size_t place) noexcept {
  report_.isIncomplete = true;
  setOutcome(place, Outcome::failed);
  contain([&] {
    report_.files[place].error = Error(
        KivRESTServiceErrorDomain,
        static_cast<std::int64_t>(KivRESTServiceErrorCode::outOfResources), "Memory has run out.");
  });
}

/// False after the report as well.
bool Revalidation::isPending(std::size_t place) const noexcept {
  return place < files_.size() && files_[place].isPending;
}

void Revalidation::setOutcome(std::size_t place, Outcome outcome) noexcept {
  if (!std::exchange(files_[place].isPending, false)) return;
  report_.files[place].outcome = outcome;
  --pending_;
}

void Revalidation::noteCancellation(std::size_t place) {
  manager_.step([&] {
    if (!isPending(place)) return;
    report_.outcome = KivResourceRevalidationOutcome::stopped;
    setOutcome(place, Outcome::notEnded);
  });
}

// --- The end -------------------------------------------------------------------------------------

void Revalidation::end(KivResourceRevalidationOutcome outcome) noexcept {
  report_.outcome = outcome;
  for (std::size_t place = 0; place < files_.size(); ++place)
    setOutcome(place, Outcome::notEnded);
  isBegun_ = true;
}

void Revalidation::noteOrigins() {
  for (File& file : files_) {
    if (!std::exchange(file.isLearnt, false)) continue;
    const std::string name(path::lastPathComponent(file.origin.link));
    manager_.origins->note(name, std::move(file.origin));
  }
}

void Revalidation::handOver() noexcept {
  report_.duration = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - start_);
  for (const KivResourceRevalidationFile& file : report_.files)
    report_.bytes += file.metrics.bytes;
  postReport(*manager_.queue, [self = shared_from_this()] { self->report(); });
}

void Revalidation::report() {
  // The resources, and whatever the handler has, are released on the manager's queue.
  files_.clear();
  const auto handler = std::exchange(handler_, nullptr);
  if (handler) handler(report_);
}

// --- The revalidations of a manager --------------------------------------------------------------

Revalidations::~Revalidations() {
  if (!running_) return;
  running_->end(KivResourceRevalidationOutcome::abandoned);
  running_->handOver();
}

void Revalidations::start(const KivResourceRevalidation& what,
                          KivResourceRevalidationHandler handler,
                          const std::shared_ptr<KivResourceRESTModule>& loader) {
  const auto revalidation = std::make_shared<Revalidation>(manager_, std::move(handler));
  if (running_) {
    revalidation->end(KivResourceRevalidationOutcome::refused);
    revalidation->handOver();
    return;
  }
  const ResourceList& registry = manager_.registry();
  ResourceArray resources =
      what.resourceID ? registry.resourcesWithID(*what.resourceID) : registry.resources();
  std::erase_if(resources, [&](const std::shared_ptr<KivResource>& resource) {
    return what.type && resource->type() != *what.type;
  });
  revalidation->prepare(resources);
  running_ = revalidation;
  revalidation->ask(loader);
}

void Revalidations::stop() noexcept {
  if (running_) running_->end(KivResourceRevalidationOutcome::stopped);
}

void Revalidations::endStep() noexcept {
  if (!running_ || !running_->hasEnded()) return;
  const auto ended = std::exchange(running_, nullptr);
  contain([&] { ended->noteOrigins(); });
  ended->handOver();
}

}  // namespace kiv
