#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::test {

/// One entry of an archive. Fields other than name and contents are written to the archive
/// unchanged, even if they are wrong.
struct ZipEntry {
  std::string name = {};
  std::string contents = {};
  std::uint16_t method = 0;  ///< 0 stored, 8 deflated; any other is declared but stored
  std::uint16_t flags = 0;
  std::uint16_t madeBy = 3 << 8 | 30;  ///< 3: Unix
  std::uint32_t mode = 0100644;        ///< Unix mode, the upper half of the external attributes
  bool dataDescriptor = false;         ///< sizes and checksum follow the contents
  bool zip64 = false;                  ///< sizes and offset in the extra field
  std::optional<std::uint32_t> crc = {};
  std::optional<std::uint64_t> size = {};
  std::optional<std::uint64_t> packedSize = {};
  std::optional<std::string> packed = {};     ///< overrides the compressed bytes
  std::optional<std::string> localName = {};  ///< overrides the name in the local header
  std::optional<std::uint64_t> headerOffset = {};
};

/// Writes zip archives byte by byte, including malformed ones.
class ZipBuilder {
 public:
  ZipBuilder& add(ZipEntry entry);
  /// Adds a deflated file.
  ZipBuilder& addFile(std::string name, std::string contents);
  ZipBuilder& addDirectory(std::string name);

  std::string comment;
  bool zip64End = false;  ///< writes a zip64 end of central directory record
  std::optional<std::uint64_t> entryCount;
  std::optional<std::uint64_t> listOffset;

  [[nodiscard]] std::string build() const;

  /// The bytes as a raw deflate stream.
  static std::string deflated(std::string_view bytes);
  static std::uint32_t checksum(std::string_view bytes);

 private:
  std::vector<ZipEntry> entries_;
};

}  // namespace kiv::test
