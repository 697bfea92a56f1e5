#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tool {

/// The terminal on standard output, if there is one.
class Terminal {
 public:
  enum class Style { bold, dim, green, red };

  Terminal();

  /// True if standard output is a terminal on which a line can be overwritten.
  [[nodiscard]] bool isTerminal() const noexcept { return isTerminal_; }
  /// The current number of columns.
  [[nodiscard]] std::size_t width() const;
  /// The text in that style; unchanged if colours are disabled or not supported.
  [[nodiscard]] std::string styled(Style style, std::string_view text) const;

 private:
  bool isTerminal_ = false;
  bool hasColours_ = false;
};

}  // namespace tool
