#pragma once

#include <optional>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kiv::posix {

/// Owner of a file descriptor.
class Descriptor {
 public:
  explicit Descriptor(int number) noexcept : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  [[nodiscard]] int number() const noexcept { return number_; }
  [[nodiscard]] bool isOpen() const noexcept { return number_ >= 0; }
  int release() noexcept { return std::exchange(number_, -1); }

 private:
  int number_;
};

/// The names of the items in the open directory, without "." and ".."; nothing, with the system's
/// error number, on failure.
std::optional<std::vector<std::string>> namesInDirectory(Descriptor directory);

}  // namespace kiv::posix
