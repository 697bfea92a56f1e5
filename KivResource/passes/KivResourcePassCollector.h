#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivRESTService/KivRESTServiceTask.h"
#include "KivResource/KivResourceObject.h"
#include "KivResource/list/KivResourceList.h"
#include "KivResource/passes/KivResourcePass.h"
#include "KivResource/passes/KivResourcePassReport.h"

namespace kiv {

class PassCollector;

/// A download of a pass, by which its end finds its place in the report. Empty if nobody follows
/// the pass. Nothing is noted after the end of the pass.
class PassFile {
 public:
  PassFile() = default;
  PassFile(std::shared_ptr<PassCollector> collector, std::size_t entry, std::size_t place) noexcept
      : collector_(std::move(collector)), entry_(entry), place_(place) {}

  explicit operator bool() const noexcept { return collector_ != nullptr; }

  /// Status and metrics of the task that has ended.
  void noteTask(const KivRESTServiceTask& task) const noexcept;
  void noteEnd(KivResourcePassFileOutcome outcome,
               const std::optional<Error>& error = std::nullopt) const noexcept;

 private:
  template <class Note>
  void tell(const Note& note) const noexcept;

  std::shared_ptr<PassCollector> collector_;
  std::size_t entry_ = 0;
  std::size_t place_ = 0;
};

/// Makes the report of one pass from what the manager tells it. To be used on the manager's queue.
///
/// An operation may throw std::bad_alloc. Resources that are not of this pass are ignored.
class PassCollector : public std::enable_shared_from_this<PassCollector> {
 public:
  PassCollector(std::uint64_t passID, KivResourcePassReportHandler handler);

  /// What the configuration has: `resources` holds the resource of each item, or nullptr.
  void noteItems(const Value& config, const ResourceArray& resources);
  /// The pass is refused with that error.
  void noteRefusal(const Error& error);
  /// The resources that the filters of the pass leave.
  void noteSelection(const KivResourcePass& pass, const ResourceArray& selected);

  void noteUnchanged(const KivResource& resource, const std::shared_ptr<KivResource>& loaded);
  void noteLocalFile(const KivResource& resource, const std::string& link);
  /// Empty if the resource is not of this pass.
  PassFile noteDownload(const KivResource& resource, const std::string& link);
  /// The resource takes the place of those, which may be none.
  void noteReplaced(const KivResource& resource, const ResourceArray& others);
  void noteLoaded(const KivResource& resource);
  void noteFailed(const KivResource& resource, const std::optional<Error>& error);
  /// A loaded resource has lost a file before observers were told.
  void noteLost(const KivResource& resource, const Error& error);
  /// The resources are about to be dropped from the registry, those that it has.
  void noteDropped(const ResourceArray& resources, const ResourceList& registry);
  void noteStop() noexcept { report_.outcome = KivResourcePassOutcome::stopped; }
  void noteAbandoned() noexcept { report_.outcome = KivResourcePassOutcome::abandoned; }
  void noteLackOfMemory() noexcept { report_.isIncomplete = true; }

  /// The file of the report; nullptr after the end.
  KivResourcePassFile* file(std::size_t entry, std::size_t place) noexcept;

  /// Completes the report. Nothing is noted after this, even if it throws.
  void end(const ResourceList& registry, const std::optional<Error>& saveError);
  /// The same if there is no registry any more.
  void end();
  /// Hands the report over, and releases the handler.
  void report();

 private:
  [[nodiscard]] KivResourcePassEntry* entryOf(const KivResource& resource);
  KivResourcePassFile& addFile(KivResourcePassEntry& entry, const std::string& link);
  void close() noexcept;
  void concludeEntries(const ResourceList* registry);

  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  KivResourcePassReportHandler handler_;
  KivResourcePassReport report_;
  bool isOpen_ = true;
  /// For each entry the resource that counts as loaded, or will: kept, so that no other can have
  /// its address meanwhile.
  ResourceArray resources_;
  std::unordered_map<const KivResource*, std::size_t> places_;  ///< Of the selected, in entries.
};

}  // namespace kiv
