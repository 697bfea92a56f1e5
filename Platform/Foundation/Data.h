#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Foundation/Export.h"

namespace kiv {

/// Immutable bytes, cheap to copy: copies share one buffer, which lives as long as any of them.
/// Copies may be used from different threads.
class KIV_EXPORT Data {
 public:
  /// No bytes.
  Data() noexcept = default;
  /// Takes the bytes over.
  explicit Data(std::string bytes);

  [[nodiscard]] std::size_t size() const noexcept { return view().size(); }
  [[nodiscard]] bool empty() const noexcept { return view().empty(); }
  /// The bytes, valid as long as this object or a copy of it lives.
  [[nodiscard]] std::string_view view() const noexcept;

  friend bool operator==(const Data& a, const Data& b) noexcept { return a.view() == b.view(); }

 private:
  std::shared_ptr<const std::string> bytes_;
};

}  // namespace kiv
