#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Examples/demo/Report.h"
#include "KivResource/KivResource.h"

namespace demo {

/// Runs one pass of the manager from its call to its finish, and keeps what was heard meanwhile.
class Pass : public KivResourceManagerObserver {
 public:
  struct Failure {
    std::string resourceID;
    std::optional<kiv::Error> error;
  };

  /// Makes the call and drains the main queue until the pass has finished. `total` is the number of
  /// resources that the pass will tell about.
  static std::shared_ptr<Pass> run(Report& report, std::size_t total,
                                   const std::function<void(KivResourceManager&)>& call);

  Pass(Report& report, std::size_t total) : report_(report), total_(total) {}

  [[nodiscard]] bool loaded(const std::string& resourceID) const;
  [[nodiscard]] std::size_t loadedCount() const noexcept { return loaded_.size(); }
  [[nodiscard]] const std::vector<Failure>& failures() const noexcept { return failures_; }
  [[nodiscard]] int finishes() const noexcept { return finishes_; }

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>& manager,
                                       const std::shared_ptr<KivResource>& resource) override;
  void resourceManager_didFailToLoadResource_withError(
      const std::shared_ptr<KivResourceManager>& manager,
      const std::shared_ptr<KivResource>& resource,
      const std::optional<kiv::Error>& error) override;
  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>& manager) override;

 private:
  void step(const std::string& text);

  Report& report_;
  const std::size_t total_;
  std::vector<std::string> loaded_;
  std::vector<Failure> failures_;
  int finishes_ = 0;
};

}  // namespace demo
