#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivResource/KivResource.h"
#include "Tools/kivresource/Terminal.h"

namespace tool {

/// Shows the progress of a pass: one line for each resource when it completes or fails and, on a
/// terminal, a progress bar below them. Used on the main queue.
class PassView {
 public:
  /// `showsTries`: also a line for each failed try at a server.
  explicit PassView(bool showsTries = false) : showsTries_(showsTries) {}

  void showLoaded(const KivResource& resource);
  /// Also shows the URL of the first file that failed, if it is known.
  void showFailed(const KivResourceManager& manager, const KivResource& resource,
                  const std::optional<kiv::Error>& error);
  /// Call it with each completed download before its resource is shown.
  void noteEnd(const KivRESTServiceTask& task);
  void showProgress(const KivRESTServiceProgress& progress);
  /// Prints a line about a file that was replaced.
  void showReplaced(const std::string& path);
  /// Prints a line about a failure.
  void showFailure(const std::string& what, std::string_view reason);
  /// Prints the last line and removes the progress bar.
  void showEnd(const std::string& line);

 private:
  void printLine(const std::string& line);
  void drawBar();
  void eraseBar();

  /// The URL of the first failed file of the resource; empty if it is not known.
  [[nodiscard]] std::string failedURL(const KivResourceManager& manager,
                                      const KivResource& resource) const;

  void showTry(const KivRESTServiceFailedTry& failed);

  const Terminal terminal_;
  const bool showsTries_;
  std::vector<std::string> failedURLs_;  ///< In order of failure.
  std::string bar_;
  bool barIsShown_ = false;
};

}  // namespace tool
