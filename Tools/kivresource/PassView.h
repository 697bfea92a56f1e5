#pragma once

#include <string>
#include <string_view>

#include "KivResource/KivResource.h"
#include "Tools/kivresource/Terminal.h"

namespace tool {

/// Shows a person how a pass goes: a line for each resource as it completes or fails, and on a
/// terminal a progress bar below them. Used on the main queue.
class PassView : public KivResourceManagerObserver {
 public:
  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>& manager,
                                       const std::shared_ptr<KivResource>& resource) override;
  void resourceManager_didFailToLoadResource_withError(
      const std::shared_ptr<KivResourceManager>& manager,
      const std::shared_ptr<KivResource>& resource,
      const std::optional<kiv::Error>& error) override;

  void showProgress(const KivRESTServiceProgress& progress);
  /// A line about something that did not go well.
  void showFailure(const std::string& what, std::string_view reason);
  /// The last line; the bar is gone.
  void showEnd(const std::string& line);

 private:
  void printLine(const std::string& line);
  void drawBar();
  void eraseBar();

  const Terminal terminal_;
  std::string bar_;
  bool barIsShown_ = false;
};

}  // namespace tool
