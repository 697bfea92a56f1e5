#include "Tools/kivresource/ProgressBar.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "Tools/kivresource/Text.h"

namespace tool {

namespace {

std::uint64_t natural(std::int64_t number) {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(number, 0));
}

/// Between 0 and 1: by bytes if all sizes are known, otherwise by files.
double partDone(const KivRESTServiceProgress& progress, std::size_t files) {
  if (progress.bytesExpected && *progress.bytesExpected > 0) {
    return std::clamp(
        static_cast<double>(progress.bytesReceived) / static_cast<double>(*progress.bytesExpected),
        0.0, 1.0);
  }
  return files == 0 ? 1.0 : static_cast<double>(progress.tasksEnded) / static_cast<double>(files);
}

std::string metrics(const KivRESTServiceProgress& progress, std::size_t files) {
  std::string text = std::to_string(progress.tasksEnded) + "/" + counted(files, "file") + "  " +
                     byteText(natural(progress.bytesReceived));
  if (progress.bytesExpected) text += " of " + byteText(natural(*progress.bytesExpected));
  if (progress.bytesPerSecond >= 1) {
    text += "  " + byteText(static_cast<std::uint64_t>(progress.bytesPerSecond)) + "/s";
    if (progress.bytesExpected) {
      const auto left = natural(*progress.bytesExpected - progress.bytesReceived);
      const double seconds = std::ceil(static_cast<double>(left) / progress.bytesPerSecond);
      text += "  " + durationText(static_cast<std::uint64_t>(seconds)) + " left";
    }
  }
  return text;
}

}  // namespace

std::string progressLine(const KivRESTServiceProgress& progress, std::size_t width) {
  const std::size_t files = progress.tasksWaiting + progress.tasksRunning + progress.tasksEnded;
  const std::string text = metrics(progress, files);
  constexpr std::size_t longestBar = 30;
  constexpr std::size_t shortestBar = 5;
  constexpr std::size_t frame = 4;  // the brackets, and two spaces
  if (text.size() + frame + shortestBar > width) return text.substr(0, width);
  const std::size_t cells = std::min(longestBar, width - text.size() - frame);
  const auto filled =
      static_cast<std::size_t>(partDone(progress, files) * static_cast<double>(cells));
  std::string line(1, '[');
  line.append(filled, '#').append(cells - filled, '-');
  return line.append("]  ").append(text);
}

}  // namespace tool
