#pragma once

#include <memory>
#include <string>

namespace kiv::storage {

class ProcessDirectory;

/// The path of a temporary file or directory. What lies there when this goes is removed.
class Temporary {
 public:
  /// `home` holds the path, and is kept as long as the temporary may lie there.
  Temporary(std::string path, std::shared_ptr<ProcessDirectory> home);
  Temporary(Temporary&&) noexcept = default;
  Temporary& operator=(Temporary&&) = delete;
  ~Temporary();

  /// Leaves what lies there to whoever removes the process's directory.
  void leave() noexcept { home_.reset(); }

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

 private:
  std::string path_;
  std::shared_ptr<ProcessDirectory> home_;  ///< empty once moved from or left
};

}  // namespace kiv::storage
