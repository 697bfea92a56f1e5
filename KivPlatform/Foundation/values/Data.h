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

/// The file that holds the bytes of some data. Thread-safe.
class KIV_EXPORT DataFile {
 public:
  virtual ~DataFile() = default;
  /// The bytes, which stay where they are as long as this lives.
  [[nodiscard]] virtual std::string_view bytes() const noexcept KIV_LIFETIME_BOUND = 0;
  /// Copies `count` bytes from `offset` on. Fails if they cannot be read, or are not there.
  [[nodiscard]] virtual Status copyBytes(std::uint64_t offset, char* to,
                                         std::size_t count) const = 0;
  /// The file's path, once: it is the caller's from then on.
  virtual std::optional<std::string> take() = 0;
};

/// Immutable bytes, cheap to copy: copies share one buffer, or one file, which lives as long as any
/// of them. Copies may be used from different threads.
class KIV_EXPORT Data {
 public:
  /// No bytes.
  Data() noexcept = default;
  /// Takes the bytes over.
  explicit Data(std::string bytes);
  /// The same. The destructor of the last copy gives them back to `release`, on its thread.
  Data(std::string bytes, std::function<void(std::string)> release);

  /// Bytes in a file, which is removed with the last copy; see fileDataAtPath().
  explicit Data(std::shared_ptr<DataFile> file) noexcept;

  /// The path of the file that holds the bytes, so that it can be renamed instead of written again.
  /// From then on the caller owns the file, and moves or removes it. Only one call answers, among
  /// all copies; nothing otherwise, or if the bytes are in memory. The bytes of every copy stay
  /// readable.
  [[nodiscard]] std::optional<std::string> takeFile() const;

  [[nodiscard]] std::size_t size() const noexcept { return view().size(); }
  [[nodiscard]] bool empty() const noexcept { return view().empty(); }
  /// The bytes, valid as long as this object or a copy of it lives. If they are in a file and
  /// another process truncates it, reading beyond its new end raises SIGBUS.
  [[nodiscard]] std::string_view view() const noexcept KIV_LIFETIME_BOUND;
  /// True if the bytes are in a file, even after takeFile().
  [[nodiscard]] bool isFile() const noexcept;
  /// Copies `count` bytes from `offset` on. Fails if the data has no such bytes, or if they can no
  /// longer be read from its file, which may have been truncated.
  Status copyBytes(std::uint64_t offset, char* to, std::size_t count) const;

  friend bool operator==(const Data& a, const Data& b) noexcept { return a.view() == b.view(); }

 private:
  class Memory;

  // At most one of the two is set.
  std::shared_ptr<const Memory> memory_;
  std::shared_ptr<DataFile> file_;
};

}  // namespace kiv
