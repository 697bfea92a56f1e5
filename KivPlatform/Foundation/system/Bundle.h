#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/system/InstalledResources.h"  // IWYU pragma: keep

namespace kiv {

/// The directory of resources that ships with the framework.
class KIV_EXPORT Bundle {
 public:
  /// The framework's own bundle: the directory that the host named with setFrameworkResourcesPath,
  /// otherwise the first that holds InnerAdResources.bundle of these: that of the library or, where
  /// it is linked statically, of the program; share/KivResource of the prefix that this lies in, of
  /// the prefix that the program was built against, and of that which the library was configured
  /// for.
  static Bundle frameworkBundle();

  /// Names the directory that holds InnerAdResources.bundle; nothing brings the default back. A
  /// relative path is taken from the directory that is current now. May be called from any thread,
  /// and takes effect with the next frameworkBundle().
  static void setFrameworkResourcesPath(std::optional<std::string> path);

  /// The directory, empty if none was found.
  [[nodiscard]] const std::string& resourcePath() const noexcept { return resourcePath_; }

  /// The absolute path of the packaged file `name`.`type` in the subdirectory `directory`, or
  /// nothing if no such file is packaged. An empty type stands for a name without extension.
  [[nodiscard]] std::optional<std::string> pathForResource_ofType_inDirectory(
      std::string_view name, std::string_view type, std::string_view directory) const;

 private:
  explicit Bundle(std::string resourcePath);

  std::string resourcePath_;
};

}  // namespace kiv
