#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/system/InstalledResources.h"  // IWYU pragma: keep

namespace kiv {

/// A directory of resources that ships with the framework.
class KIV_EXPORT Bundle {
 public:
  /// The framework's resources: the directory that the host has set. Otherwise the first of these
  /// that has a subdirectory `name`: the directory of the library or, if it is linked statically,
  /// of the program; then share/KivResource of the prefix that this directory is in, of the prefix
  /// that the program was built against, and of the prefix that the library was configured for. The
  /// answer is kept until the process ends. May be called from any thread.
  static Bundle frameworkBundleWithDirectory(std::string_view name);

  /// Sets the directory of the framework's resources; std::nullopt restores the default. A relative
  /// path is resolved against the current directory now. May be called from any thread; takes
  /// effect with the next frameworkBundleWithDirectory().
  static void setFrameworkResourcesPath(std::optional<std::string> path);

  /// The directory at the absolute path. With an empty path there are no resources.
  static Bundle bundleWithPath(std::string path);

  /// The directory; empty if none was found.
  [[nodiscard]] const std::string& resourcePath() const noexcept { return resourcePath_; }

  /// The absolute path of the file `name`.`type` in the subdirectory `directory`, or nothing if
  /// there is no such file. An empty type means a name without extension.
  [[nodiscard]] std::optional<std::string> pathForResource_ofType_inDirectory(
      std::string_view name, std::string_view type, std::string_view directory) const;

 private:
  explicit Bundle(std::string resourcePath);

  std::string resourcePath_;
};

}  // namespace kiv
