#pragma once

#include <cstdint>
#include <functional>
#include <new>
#include <utility>

#include "KivResource/KivResource.h"

namespace kiv::session {

/// Takes one line of output.
using Output = std::function<void(const Dictionary& line)>;

/// Puts out each callback of the manager as a line. Registered on the manager's queue, so that it
/// may read all properties of a resource.
class SessionEvents : public KivResourceManagerObserver {
 public:
  explicit SessionEvents(Output output) : output_(std::move(output)) {}

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>& manager,
                                       const std::shared_ptr<KivResource>& resource) override;
  void resourceManager_didFailToLoadResource_withError(
      const std::shared_ptr<KivResourceManager>& manager,
      const std::shared_ptr<KivResource>& resource, const std::optional<Error>& error) override;
  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>& manager) override;

 protected:
  void writeLine(const Dictionary& line) const { output_(line); }
  /// Runs the function, which puts out lines. If there is no memory for them, a line tells so: a
  /// host may be waiting for them.
  template <class Function>
  void orReportLoss(const Function& function) const {
    try {
      function();
    } catch (const std::bad_alloc&) {
      output_(lossLine_);
    }
  }

 private:
  const Output output_;
  const Dictionary lossLine_{{"error", "memory ran out, and lines were lost"}};
};

/// A request that waits for the program's answer, as a line.
Dictionary requestLine(std::uint64_t number, const URL& url);

/// The progress of a pass as a line.
Dictionary progressLine(const KivRESTServiceProgress& progress);

}  // namespace kiv::session
