#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

namespace kiv::powercuts {

/// What happened to a disk, or beside it.
struct Record {
  enum class Kind : std::uint64_t {
    write,  ///< `bytes` were written at `offset`.
    flush,  ///< The disk was told to put everything written so far on the medium.
    event   ///< `bytes` are what a program reported.
  };

  Kind kind = Kind::flush;
  std::uint64_t offset = 0;
  std::string bytes;
};

/// Appends records to a file. Throws std::ios_base::failure.
class WriteLog {
 public:
  explicit WriteLog(const std::string& path);
  void append(Record::Kind kind, std::uint64_t offset, std::string_view bytes);

 private:
  std::ofstream file_;
};

/// Reads them in their order. Throws std::ios_base::failure.
class WriteLogReader {
 public:
  explicit WriteLogReader(const std::string& path);
  /// The next record; nothing at the end.
  std::optional<Record> next();

 private:
  std::ifstream file_;
};

}  // namespace kiv::powercuts
