#pragma once

#include <optional>
#include <string>

namespace kiv::test {

/// Reads lines from a pipe to another process. It owns the descriptor, and closes it.
class LineReader {
 public:
  LineReader() = default;
  explicit LineReader(int descriptor) noexcept : descriptor_(descriptor) {}
  ~LineReader();
  LineReader(LineReader&& other) noexcept;
  LineReader& operator=(LineReader&& other) noexcept;

  /// The next line without its newline; nullopt at the end of the input, after an error, or if none
  /// comes for a minute. Text after the last newline is no line.
  std::optional<std::string> readLine();
  /// Whether the other process has closed its end, and all lines were read.
  [[nodiscard]] bool hasEnded() const noexcept { return hasEnded_; }

 private:
  int descriptor_ = -1;
  bool hasEnded_ = false;
  std::string read_;
};

}  // namespace kiv::test
