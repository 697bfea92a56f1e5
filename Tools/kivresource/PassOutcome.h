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

/// Counts what comes of a pass, and has it shown. A resource fails once, however many of its files
/// do. Used on the main queue.
class PassOutcome : public KivResourceManagerObserver {
 public:
  /// Nothing is shown without a view.
  explicit PassOutcome(std::shared_ptr<PassView> view) : view_(std::move(view)) {}

  [[nodiscard]] std::size_t loaded() const noexcept { return loaded_; }
  [[nodiscard]] std::size_t failed() const noexcept { return failed_.size(); }
  /// Those of the expected resources that were neither announced as loaded nor as failed, because
  /// what came were not the files that they need.
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
