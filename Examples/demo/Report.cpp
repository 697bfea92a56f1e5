#include "Examples/demo/Report.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace demo {

namespace {

constexpr const char* bold = "\033[1m";
constexpr const char* green = "\033[32m";
constexpr const char* red = "\033[31m";
constexpr const char* dim = "\033[2m";

/// What a host would show of the resource.
std::string summary(const KivResource& resource) {
  std::ostringstream text;
  if (const auto* banner = dynamic_cast<const KivResourceStandard*>(&resource)) {
    text << "banner, leads to " << banner->marketLink();
  } else if (const auto* video = dynamic_cast<const KivResourceVideo*>(&resource)) {
    text << "video \"" << video->title() << "\", " << video->votes() << " votes, rated "
         << std::setprecision(2) << video->rating();
  } else if (resource.engine() == "eco_fs") {
    text << "page, full screen";
  } else {
    text << "page, in context";
  }
  return text.str();
}

}  // namespace

void Report::heading(const std::string& text) {
  endProgressLine();
  std::cout << '\n' << styled(bold, text) << '\n';
}

void Report::note(const std::string& text) {
  endProgressLine();
  std::cout << "    " << styled(dim, text) << '\n';
}

void Report::check(bool holds, const std::string& claim) {
  endProgressLine();
  everythingHeld_ = everythingHeld_ && holds;
  std::cout << "  " << (holds ? styled(green, "✓") : styled(red, "✗")) << ' ' << claim << std::endl;
}

void Report::progress(std::size_t done, std::size_t total, const std::string& text) {
  if (!terminal_) {
    std::cout << "  [" << done << '/' << total << "] " << text << std::endl;
    return;
  }
  constexpr std::size_t width = 24;
  const std::size_t filled = total == 0 ? width : std::min(width, done * width / total);
  std::string bar;
  for (std::size_t cell = 0; cell < width; ++cell)
    bar += cell < filled ? "█" : "░";
  std::cout << "\r\033[K  " << styled(green, bar) << ' ' << done << '/' << total << "  " << text
            << std::flush;
  progressIsOpen_ = true;
}

void Report::table(const std::vector<std::shared_ptr<KivResource>>& resources) {
  std::size_t width = 0;
  for (const auto& resource : resources)
    width = std::max(width, resource->resourceID().size());
  for (const auto& resource : resources) {
    std::cout << "  " << styled(bold, resource->resourceID())
              << std::string(width - resource->resourceID().size(), ' ') << "  "
              << resource->updated() << "  " << summary(*resource) << '\n';
    for (const auto& path : resource->useFilePaths()) {
      std::cout << "  " << std::string(width, ' ') << "  " << path << '\n';
    }
  }
  std::cout << std::flush;
}

void Report::endProgressLine() {
  if (progressIsOpen_) std::cout << '\n';
  progressIsOpen_ = false;
}

std::string Report::styled(const char* style, const std::string& text) const {
  return terminal_ ? style + text + "\033[0m" : text;
}

}  // namespace demo
