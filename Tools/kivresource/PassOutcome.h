#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "KivResource/KivResource.h"

namespace tool {

/// What a pass is to bring: the resources that the configuration names and the selection leaves.
struct Expected {
  /// Something about one item.
  struct Note {
    std::size_t place;  ///< Of the item, counted from 1.
    std::string text;
  };

  kiv::ResourceArray resources;
  /// Why items make no resource.
  std::vector<Note> unacceptable;
  /// What is odd about those that do.
  std::vector<Note> odd;

  /// Makes the resources of the items anew; what the factory has to say of them is not logged, as
  /// the pass says it again.
  static Expected of(const kiv::Value& config, const std::optional<std::string>& id,
                     const std::optional<std::string>& type);
};

/// Keeps the books of a pass.
class PassOutcome : public KivResourceManagerObserver {
 public:
  [[nodiscard]] std::size_t loaded() const noexcept { return loaded_; }
  /// Resources that failed, however many of their files did.
  [[nodiscard]] std::size_t failed() const noexcept { return failed_.size(); }
  /// The expected resources of which nothing was heard: their files came to nothing that they
  /// could use.
  [[nodiscard]] kiv::ResourceArray unheardOf(const Expected& expected) const;

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>& manager,
                                       const std::shared_ptr<KivResource>& resource) override;
  void resourceManager_didFailToLoadResource_withError(
      const std::shared_ptr<KivResourceManager>& manager,
      const std::shared_ptr<KivResource>& resource,
      const std::optional<kiv::Error>& error) override;

 private:
  std::size_t loaded_ = 0;
  std::map<std::string, std::size_t> loadedByID_;
  std::set<std::shared_ptr<KivResource>> failed_;
};

}  // namespace tool
