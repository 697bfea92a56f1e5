#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivResource/KivResourceRESTModule.h"
#include "KivResource/list/KivResourceList.h"
#include "KivResource/revalidation/KivResourceFileOrigins.h"
#include "KivResource/revalidation/KivResourceRevalidationReport.h"

namespace kiv {

class QueueAssertion;

/// What a revalidation needs of its manager. To be used on the manager's queue.
struct RevalidationManager {
  using Job = std::function<void()>;

  /// Runs the job as a step of the manager; not if the manager is being destroyed.
  std::function<void(const Job& job)> step;
  /// Runs the job, within a step, while no other process changes the list, which the registry has
  /// caught up with.
  std::function<void(const Job& job)> withLock;
  std::function<const ResourceList&()> registry;
  FileOrigins* origins = nullptr;
  std::shared_ptr<const QueueAssertion> queue;
};

/// One revalidation: asks about the files, replaces those that have changed, and makes the report.
/// To be used on the manager's queue, within steps.
class Revalidation : public std::enable_shared_from_this<Revalidation> {
 public:
  Revalidation(RevalidationManager manager, KivResourceRevalidationHandler handler);

  /// Notes the files of those resources.
  void prepare(const ResourceArray& resources);
  /// Asks about each of which the link is known. Answers may come before this returns. `loader` may
  /// be nullptr.
  void ask(const std::shared_ptr<KivResourceRESTModule>& loader);

  [[nodiscard]] bool hasEnded() const noexcept { return isBegun_ && pending_ == 0; }
  /// Notes what was learnt about the files.
  void noteOrigins();
  /// Ends it with that outcome. What is answered later is ignored.
  void end(KivResourceRevalidationOutcome outcome) noexcept;
  /// Completes the report, and hands it over as a job of the manager's queue.
  void handOver() noexcept;

 private:
  class Request;
  struct File {
    std::optional<StoredVersion> version;  ///< When it was asked about.
    FileOrigin origin;
    std::shared_ptr<KivResource> resource;  ///< The one with the highest priority.
    bool isPending = false;
    bool isLearnt = false;  ///< The origin is to be noted.
  };
  using Outcome = KivResourceRevalidationFileOutcome;

  void addFile(std::string path, const std::shared_ptr<KivResource>& resource);
  void look(const std::string& name, std::size_t place, const FileOriginMap& origins);
  void ask(std::size_t place, const std::shared_ptr<KivResourceRESTModule>& loader);
  void noteCancellation(std::size_t place);
  void answer(const Request& request, const std::optional<Data>& data,
              const std::optional<Error>& error);
  void conclude(const Request& request, const std::optional<Data>& data,
                const std::optional<Error>& error);
  [[nodiscard]] bool isSame(std::size_t place, const Data& data) const;
  [[nodiscard]] bool isStillUsed(std::size_t place) const;
  void replace(const Request& request, const Data& data);
  void learn(const Request& request, const std::optional<Data>& data);
  void fail(std::size_t place, const std::optional<Error>& error);
  void failForLackOfMemory(std::size_t place) noexcept;
  [[nodiscard]] bool isPending(std::size_t place) const noexcept;
  void setOutcome(std::size_t place, Outcome outcome) noexcept;
  void report();

  const RevalidationManager manager_;  ///< A copy, since answers may come after its end.
  KivResourceRevalidationHandler handler_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  KivResourceRevalidationReport report_;
  std::vector<File> files_;                                 ///< Those of the report, in its order.
  std::map<std::string, std::size_t, std::less<>> places_;  ///< By stored name, or by path.
  std::size_t pending_ = 0;
  bool isBegun_ = false;
};

/// The revalidations of a manager, of which one runs at a time. To be used on its queue.
class Revalidations {
 public:
  explicit Revalidations(RevalidationManager manager) : manager_(std::move(manager)) {}
  Revalidations(const Revalidations&) = delete;
  Revalidations& operator=(const Revalidations&) = delete;
  /// Ends the running one as abandoned.
  ~Revalidations();

  /// Within a step. Throws std::bad_alloc if memory runs out at the start; the handler is then
  /// never called.
  void start(const KivResourceRevalidation& what, KivResourceRevalidationHandler handler,
             const std::shared_ptr<KivResourceRESTModule>& loader);
  /// Ends the running one as stopped.
  void stop() noexcept;
  /// The end of a step, before what was noted about files is written. Hands over the report of one
  /// that has ended.
  void endStep() noexcept;

 private:
  const RevalidationManager manager_;
  std::shared_ptr<Revalidation> running_;
};

}  // namespace kiv
