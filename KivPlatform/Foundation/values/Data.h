#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Error.h"

namespace kiv {

/// The file that holds the bytes of some data. Used from different threads.
class KIV_EXPORT DataFile {
 public:
  virtual ~DataFile() = default;
  /// The bytes, which stay where they are as long as this lives.
  [[nodiscard]] virtual std::string_view bytes() const noexcept = 0;
  /// Copies `count` bytes from `offset` on; false if they cannot be read, or are not there.
  virtual bool copyBytes(std::uint64_t offset, char* to, std::size_t count,
                         std::optional<Error>* error) const = 0;
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
  /// The same; gives them back to `release`, on whatever thread it is, when the last copy goes.
  Data(std::string bytes, std::function<void(std::string)> release);

  /// Bytes that lie in a file, which goes with the last copy; see fileDataAtPath().
  explicit Data(std::shared_ptr<DataFile> file) noexcept;

  /// The path of the file that holds the bytes, for whoever wants to move it to where it shall stay
  /// instead of writing the bytes again: the file is the caller's from now on, to move or to
  /// remove. Answers so once, of all copies; otherwise, and if the bytes lie in memory, nothing.
  /// The bytes of every copy stay readable, wherever the file goes.
  [[nodiscard]] std::optional<std::string> takeFile() const;

  [[nodiscard]] std::size_t size() const noexcept { return view().size(); }
  [[nodiscard]] bool empty() const noexcept { return view().empty(); }
  /// The bytes, valid as long as this object or a copy of it lives. Where they lie in a file, and
  /// another process cuts that off in spite of what was said, looking at them ends the process.
  [[nodiscard]] std::string_view view() const noexcept;
  /// True if the bytes lie in a file, wherever that has been moved to.
  [[nodiscard]] bool isFile() const noexcept;
  /// Copies `count` bytes from `offset` on. False if the data has no such bytes, or they can no
  /// longer be read from its file, which may have been cut off.
  bool copyBytes(std::uint64_t offset, char* to, std::size_t count,
                 std::optional<Error>* error = nullptr) const;

  friend bool operator==(const Data& a, const Data& b) noexcept { return a.view() == b.view(); }

 private:
  class Memory;

  // One of them at most.
  std::shared_ptr<const Memory> memory_;
  std::shared_ptr<DataFile> file_;
};

}  // namespace kiv
