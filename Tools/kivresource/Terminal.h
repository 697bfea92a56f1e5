#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tool {

/// Standard output, as far as a person looks at it.
class Terminal {
 public:
  enum class Style { bold, dim, green, red };

  Terminal();

  /// True if what is printed can be written over.
  [[nodiscard]] bool isTerminal() const noexcept { return isTerminal_; }
  /// Its columns now.
  [[nodiscard]] std::size_t width() const;
  /// The text in that style, unless colours are not wanted or not to be had.
  [[nodiscard]] std::string styled(Style style, std::string_view text) const;

 private:
  bool isTerminal_ = false;
  bool hasColours_ = false;
};

}  // namespace tool
