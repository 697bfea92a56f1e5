#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "KivResource/KivResource.h"
#include "Tools/kivresource/PassView.h"

namespace tool {

/// Counts the results of a pass and passes them to the view. A resource counts as failed once,
/// however many of its files fail. Used on the main queue.
class PassOutcome : public KivResourceManagerObserver {
 public:
  /// `view` may be null; then nothing is shown.
  explicit PassOutcome(std::shared_ptr<PassView> view) : view_(std::move(view)) {}

  [[nodiscard]] std::size_t loaded() const noexcept { return loaded_; }
  [[nodiscard]] std::size_t failed() const noexcept { return failed_.size(); }
  /// The expected resources that were announced neither as loaded nor as failed, because the
  /// downloaded files do not match their links.
  [[nodiscard]] std::vector<std::string> unheardOf(const std::vector<std::string>& expected) const;

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>& manager,
                                       const std::shared_ptr<KivResource>& resource) override;
  void resourceManager_didFailToLoadResource_withError(
      const std::shared_ptr<KivResourceManager>& manager,
      const std::shared_ptr<KivResource>& resource,
      const std::optional<kiv::Error>& error) override;

 private:
  const std::shared_ptr<PassView> view_;
  std::size_t loaded_ = 0;
  std::map<std::string, std::size_t> loadedByID_;
  std::set<std::shared_ptr<KivResource>> failed_;
};

}  // namespace tool
