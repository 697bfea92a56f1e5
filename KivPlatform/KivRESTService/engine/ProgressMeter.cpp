// Speeds are smoothed exponentially over about a second, so that a display neither flickers nor
// lags.

#include "KivPlatform/KivRESTService/engine/ProgressMeter.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "KivPlatform/KivRESTService/engine/Download.h"

namespace kiv {

namespace {

/// The speed after another `seconds` in which that many bytes came. The number may be negative: an
/// attempt that starts over has no bytes.
double smoothed(double former, std::int64_t bytes, double seconds) {
  if (seconds <= 0) return former;
  const double now = static_cast<double>(std::max<std::int64_t>(bytes, 0)) / seconds;
  return former + (now - former) * (1 - std::exp(-seconds));
}

void count(const Download& download, KivRESTServiceProgress& progress) {
  if (download.state == Download::State::running) {
    progress.tasksRunning += download.tasks.size();
    progress.running.push_back(download.progress());
  } else {
    progress.tasksWaiting += download.tasks.size();
  }
}

}  // namespace

void ProgressMeter::restart() noexcept {
  *this = ProgressMeter();
}

void ProgressMeter::noteEnded(std::size_t tasks, std::int64_t bytes) noexcept {
  endedTasks_ += tasks;
  endedBytes_ += bytes;
}

KivRESTServiceProgress ProgressMeter::measure(const Downloads& downloads, Time now) {
  const bool isFirst = lastTime_ == Time{};
  const double seconds = isFirst ? 0 : std::chrono::duration<double>(now - lastTime_).count();
  KivRESTServiceProgress progress;
  progress.tasksEnded = endedTasks_;
  progress.bytesReceived = endedBytes_;
  std::optional<std::int64_t> expected = endedBytes_;
  for (const auto& [key, download] : downloads) {
    const auto one = download->progress();
    download->bytesPerSecond =
        smoothed(download->bytesPerSecond, one.bytesReceived - download->measuredBytes, seconds);
    download->measuredBytes = one.bytesReceived;
    progress.bytesReceived += one.bytesReceived;
    if (expected && one.bytesExpected) {
      *expected += *one.bytesExpected;
    } else {
      expected.reset();
    }
    count(*download, progress);
  }
  progress.bytesExpected = expected;
  bytesPerSecond_ = smoothed(bytesPerSecond_, progress.bytesReceived - lastBytes_, seconds);
  progress.bytesPerSecond = bytesPerSecond_;
  lastBytes_ = progress.bytesReceived;
  lastTime_ = now;
  return progress;
}

}  // namespace kiv
