#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

class Status;

/// A file that holds the bytes of a Data object. Thread-safe.
class KIV_EXPORT DataFile {
 public:
  virtual ~DataFile() = default;
  /// The bytes, at an address that is valid as long as this object lives.
  [[nodiscard]] virtual std::string_view bytes() const noexcept KIV_LIFETIME_BOUND = 0;
  /// Copies `count` bytes from `offset` to `to`. Fails if there are fewer bytes or they cannot be
  /// read.
  [[nodiscard]] virtual Status copyBytes(std::uint64_t offset, char* to,
                                         std::size_t count) const = 0;
  /// Passes ownership of the file to the caller and returns its path. Only the first call does;
  /// later ones return nothing.
  virtual std::optional<std::string> take() = 0;
};

/// Immutable bytes. Copying is cheap: copies share one buffer or one file, which lives as long as
/// any of them. Copies may be used from different threads.
class KIV_EXPORT Data {
 public:
  /// No bytes.
  Data() noexcept = default;
  /// Takes ownership of the bytes.
  explicit Data(std::string bytes);
  /// The same. When the last copy is destroyed, passes the bytes to `release`, on the thread that
  /// destroys it.
  Data(std::string bytes, std::function<void(std::string)> release);

  /// Bytes in a file, which is removed with the last copy unless takeFile() was called; see
  /// fileDataAtPath().
  explicit Data(std::shared_ptr<DataFile> file) noexcept;

  /// Passes ownership of the file that holds the bytes to the caller, so that it can be renamed
  /// instead of copied. Returns its path; the caller must move or remove the file. Only the first
  /// call on any of the copies returns a path; later calls return nothing, as does every call if
  /// the bytes are in memory. The bytes of all copies stay readable.
  [[nodiscard]] std::optional<std::string> takeFile() const;

  [[nodiscard]] std::size_t size() const noexcept { return view().size(); }
  [[nodiscard]] bool empty() const noexcept { return view().empty(); }
  /// The bytes, valid as long as this object or a copy of it lives. If they are in a file and
  /// another process truncates it, reading beyond its new end raises SIGBUS.
  [[nodiscard]] std::string_view view() const noexcept KIV_LIFETIME_BOUND;
  /// True if the bytes are in a file, even after takeFile().
  [[nodiscard]] bool isFile() const noexcept;
  /// Copies `count` bytes from `offset` to `to`. Fails if the data has fewer bytes, or if they
  /// cannot be read from the file any more, for example because it was truncated. Unlike view(),
  /// this does not raise SIGBUS.
  Status copyBytes(std::uint64_t offset, char* to, std::size_t count) const;

  friend bool operator==(const Data& a, const Data& b) noexcept { return a.view() == b.view(); }

 private:
  class Memory;

  // At most one of the two is set.
  std::shared_ptr<const Memory> memory_;
  std::shared_ptr<DataFile> file_;
};

}  // namespace kiv
