#pragma once

#include <memory>
#include <string>
#include <vector>

#include "KivResource/KivResource.h"

namespace demo {

/// What a person sees: headings, claims with a tick or a cross, a progress line, and a table.
class Report {
 public:
  /// On a terminal the progress is one line that is written over, elsewhere a line for each step.
  explicit Report(bool terminal) : terminal_(terminal) {}

  void heading(const std::string& text);
  void note(const std::string& text);
  /// Prints the claim with a tick where it holds, and with a cross otherwise.
  void check(bool holds, const std::string& claim);
  void progress(std::size_t done, std::size_t total, const std::string& text);
  void table(const std::vector<std::shared_ptr<KivResource>>& resources);

  /// True where no claim has failed so far.
  [[nodiscard]] bool everythingHeld() const noexcept { return everythingHeld_; }

 private:
  void endProgressLine();
  [[nodiscard]] std::string styled(const char* style, const std::string& text) const;

  const bool terminal_;
  bool progressIsOpen_ = false;
  bool everythingHeld_ = true;
};

}  // namespace demo
