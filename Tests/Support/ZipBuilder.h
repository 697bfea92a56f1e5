#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::test {

/// One entry of an archive to be built. What is set apart from name and contents goes into the
/// archive as it stands, true or not.
struct ZipEntry {
  std::string name = {};
  std::string contents = {};
  std::uint16_t method = 0;  ///< 0 stored, 8 deflated; another one is claimed and stored
  std::uint16_t flags = 0;
  std::uint16_t madeBy = 3 << 8 | 30;  ///< 3: Unix
  std::uint32_t mode = 0100644;        ///< Unix mode, the upper half of the attributes
  bool dataDescriptor = false;         ///< sizes and checksum after the contents, not before
  bool zip64 = false;                  ///< sizes and offset in the extra field
  std::optional<std::uint32_t> crc = {};
  std::optional<std::uint64_t> size = {};
  std::optional<std::uint64_t> packedSize = {};
  std::optional<std::string> packed = {};     ///< the packed bytes
  std::optional<std::string> localName = {};  ///< the name before the contents
  std::optional<std::uint64_t> headerOffset = {};
};

/// Writes zip archives byte by byte, the broken ones too.
class ZipBuilder {
 public:
  ZipBuilder& add(ZipEntry entry);
  /// Adds a deflated file.
  ZipBuilder& addFile(std::string name, std::string contents);
  ZipBuilder& addDirectory(std::string name);

  std::string comment;
  bool zip64End = false;  ///< the end record for large archives
  std::optional<std::uint64_t> entryCount;
  std::optional<std::uint64_t> listOffset;

  [[nodiscard]] std::string build() const;

  /// The raw deflated form of the bytes.
  static std::string deflated(std::string_view bytes);
  static std::uint32_t checksum(std::string_view bytes);

 private:
  std::vector<ZipEntry> entries_;
};

}  // namespace kiv::test
