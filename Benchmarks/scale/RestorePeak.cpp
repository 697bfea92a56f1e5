// Restores a saved list and prints the peak memory of the process relative to the size of the list.
//
//   kivresource-restore-peak [--bounds=off] ROOT
//
// Fails if it restores nothing, or if the peak is more than three times the list's size.

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <sys/resource.h>

#include "KivPlatform/Foundation/system/SystemLog.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceManager.h"

namespace {

/// The peak of the process, program and libraries included. Linux reports KiB.
double peakBytes() {
  struct rusage usage {};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) * 1024;
}

}  // namespace

int main(int count, char** arguments) {
  constexpr double bound = 3;
  const bool bounds = count < 2 || std::string_view(arguments[1]) != "--bounds=off";
  const int rootIndex = bounds ? 1 : 2;
  if (count != rootIndex + 1) {
    std::fprintf(stderr, "usage: kivresource-restore-peak [--bounds=off] ROOT\n");
    return 2;
  }
  const std::string root = std::filesystem::absolute(arguments[rootIndex]).string();
  kiv::SystemLog::setHandler([](std::string_view) {});
  KivStorageService::setRootPath(root);
  const auto restored = KivResourceManager::newInstance()->loadedResources()->size();
  const double peak = peakBytes();
  const auto list =
      static_cast<double>(std::filesystem::file_size(root + "/KivResource/resources_config.json"));
  const double ratio = peak / list;
  std::printf("peak memory of %zu restored resources: %.1f MB, the list %.1f MB: %.2f", restored,
              peak / 1e6, list / 1e6, ratio);
  if (bounds) std::printf(", at most %.2f: %s", bound, ratio <= bound ? "holds" : "BROKEN");
  std::printf("\n");
  return restored > 0 && (!bounds || ratio <= bound) ? 0 : 1;
}
