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

  /// Takes over the regular file at the path, which nobody may write to any more. Its bytes are
  /// mapped, not read, and it takes a descriptor. The file is removed with the last copy, unless
  /// takeFile() handed it on; `keeper` is let go of at that moment too. Nothing where the file
  /// cannot be mapped; it is then left alone.
  static std::optional<Data> ofFileAtPath(std::string path, std::shared_ptr<void> keeper = nullptr,
                                          std::optional<Error>* error = nullptr);

  /// The path of the file that holds the bytes, for whoever wants to move it to where it shall stay
  /// instead of writing the bytes again: the file is the caller's from now on, to move or to
  /// remove. Answers so once, of all copies; otherwise, and where the bytes lie in memory, nothing.
  /// The bytes of every copy stay readable, wherever the file goes.
  [[nodiscard]] std::optional<std::string> takeFile() const;

  [[nodiscard]] std::size_t size() const noexcept { return view().size(); }
  [[nodiscard]] bool empty() const noexcept { return view().empty(); }
  /// The bytes, valid as long as this object or a copy of it lives. Where they lie in a file, and
  /// another process cuts that off in spite of what was said, looking at them ends the process.
  [[nodiscard]] std::string_view view() const noexcept;
  /// True where the bytes lie in a file, wherever that has been moved to.
  [[nodiscard]] bool isFile() const noexcept;
  /// Copies `count` bytes from `offset` on. False where the data has no such bytes, or they can no
  /// longer be read from its file, which may have been cut off.
  bool copyBytes(std::uint64_t offset, char* to, std::size_t count,
                 std::optional<Error>* error = nullptr) const;

  friend bool operator==(const Data& a, const Data& b) noexcept { return a.view() == b.view(); }

 private:
  class Contents;
  class MemoryContents;
  class FileContents;

  explicit Data(std::shared_ptr<const Contents> contents) noexcept;

  std::shared_ptr<const Contents> contents_;
};

}  // namespace kiv
