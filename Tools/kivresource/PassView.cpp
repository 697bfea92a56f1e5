#include "Tools/kivresource/PassView.h"

#include <iostream>
#include <set>

#include "Tools/kivresource/ProgressBar.h"

namespace tool {

namespace {

std::string titleOf(const KivResource& resource) {
  return kiv::escapingControlCharacters(resource.resourceID()) + "  " +
         kiv::escapingControlCharacters(resource.name());
}

}  // namespace

void PassView::showLoaded(const KivResource& resource) {
  printLine(terminal_.styled(Terminal::Style::green, "loaded") + "  " + titleOf(resource));
}

void PassView::showFailed(const KivResourceManager& manager, const KivResource& resource,
                          const std::optional<kiv::Error>& error) {
  const std::string url = failedURL(manager, resource);
  const std::string reason = error ? error->localizedDescription() : "no data came";
  const bool isTold = url.empty() || reason.find(url) != std::string::npos;
  showFailure(titleOf(resource), isTold ? reason : url + ": " + reason);
}

void PassView::noteEnd(const KivRESTServiceTask& task) {
  if (showsTries_) {
    for (const auto& failed : task.metrics().failedTries)
      showTry(failed);
  }
  if (task.request() && !task.returnedData())
    failedURLs_.push_back(kiv::displayedURL(task.request()->url.absoluteString()));
}

std::string PassView::failedURL(const KivResourceManager& manager,
                                const KivResource& resource) const {
  std::set<std::string> missing;
  for (const std::string& link : resource.missingFilesLinks()) {
    if (const auto url = manager.loader()->mainURLForFileWithLink(link))
      missing.insert(kiv::displayedURL(url->absoluteString()));
  }
  for (const std::string& url : failedURLs_) {
    if (missing.contains(url)) return url;
  }
  return missing.empty() ? std::string() : *missing.begin();
}

void PassView::showFailure(const std::string& what, std::string_view reason) {
  printLine(terminal_.styled(Terminal::Style::red, "failed") + "  " + what + ": " +
            terminal_.styled(Terminal::Style::dim, kiv::escapingControlCharacters(reason)));
}

void PassView::showTry(const KivRESTServiceFailedTry& failed) {
  const std::string reason = failed.error ? std::string(kiv::nameOf(*failed.error))
                                          : "status " + std::to_string(failed.statusCode);
  printLine(terminal_.styled(Terminal::Style::dim, "tried") + "   " +
            kiv::displayedURL(failed.server.absoluteString()) + ": " +
            terminal_.styled(Terminal::Style::dim, reason));
}

void PassView::showReplaced(const std::string& path) {
  printLine(terminal_.styled(Terminal::Style::green, "replaced") + "  " + path);
}

void PassView::showProgress(const KivRESTServiceProgress& progress) {
  if (!terminal_.isTerminal()) return;
  bar_ = progressLine(progress, terminal_.width() - 1);
  eraseBar();
  drawBar();
  std::cout << std::flush;
}

void PassView::showEnd(const std::string& line) {
  bar_.clear();
  printLine(line);
}

void PassView::printLine(const std::string& line) {
  eraseBar();
  std::cout << line << '\n';
  drawBar();
  std::cout << std::flush;
}

void PassView::drawBar() {
  std::cout << bar_;
  barIsShown_ = !bar_.empty();
}

void PassView::eraseBar() {
  if (barIsShown_) std::cout << "\r\033[K";
  barIsShown_ = false;
}

}  // namespace tool
