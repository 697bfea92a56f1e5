#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivResource/KivResource.h"
#include "Tools/kivresource/Terminal.h"

namespace tool {

/// Shows a person how a pass goes: one line for each resource as it completes or fails, and on a
/// terminal a progress bar below them. Used on the main queue.
class PassView {
 public:
  void showLoaded(const KivResource& resource);
  /// Shows where the file that failed first was to come from, as far as that is known.
  void showFailed(const KivResourceManager& manager, const KivResource& resource,
                  const std::optional<kiv::Error>& error);
  /// To be called with each download that has ended, before its resource is shown.
  void noteEnd(const KivRESTServiceTask& task);
  void showProgress(const KivRESTServiceProgress& progress);
  /// A line about something that did not go well.
  void showFailure(const std::string& what, std::string_view reason);
  /// The last line; the bar is gone.
  void showEnd(const std::string& line);

 private:
  void printLine(const std::string& line);
  void drawBar();
  void eraseBar();

  /// Empty if it is not known.
  [[nodiscard]] std::string failedURL(const KivResourceManager& manager,
                                      const KivResource& resource) const;

  const Terminal terminal_;
  std::vector<std::string> failedURLs_;  ///< In the order in which they failed.
  std::string bar_;
  bool barIsShown_ = false;
};

}  // namespace tool
