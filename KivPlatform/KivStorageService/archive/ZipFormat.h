#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Constants of the zip format, for reading the central directory. All numbers are little-endian.
namespace kiv::storage::zip {

constexpr std::uint32_t localHeaderSignature = 0x04034b50;
constexpr std::uint32_t centralHeaderSignature = 0x02014b50;
constexpr std::uint32_t endRecordSignature = 0x06054b50;
constexpr std::uint32_t endRecord64Signature = 0x06064b50;
constexpr std::uint32_t endLocator64Signature = 0x07064b50;

constexpr std::size_t localHeaderSize = 30;
constexpr std::size_t centralHeaderSize = 46;
constexpr std::size_t endRecordSize = 22;
constexpr std::size_t endRecord64Size = 56;
constexpr std::size_t endLocator64Size = 20;
constexpr std::size_t longestComment = 0xFFFF;

constexpr std::uint16_t zip64Extra = 0x0001;

constexpr std::uint16_t encryptedFlag = 1 << 0;
constexpr std::uint16_t strongEncryptionFlag = 1 << 6;
constexpr std::uint16_t utf8Flag = 1 << 11;
constexpr std::uint16_t maskedHeadersFlag = 1 << 13;

constexpr std::uint16_t storedMethod = 0;
constexpr std::uint16_t deflatedMethod = 8;

/// The number at the position; zero if it extends beyond the end.
template <class Number>
Number number(std::string_view bytes, std::size_t at) noexcept {
  if (at > bytes.size() || bytes.size() - at < sizeof(Number)) return 0;
  Number value = 0;
  for (std::size_t i = sizeof(Number); i > 0; --i) {
    value = static_cast<Number>((std::uint64_t{value} << 8) |
                                static_cast<unsigned char>(bytes[at + i - 1]));
  }
  return value;
}

inline std::uint16_t number16(std::string_view bytes, std::size_t at) noexcept {
  return number<std::uint16_t>(bytes, at);
}
inline std::uint32_t number32(std::string_view bytes, std::size_t at) noexcept {
  return number<std::uint32_t>(bytes, at);
}
inline std::uint64_t number64(std::string_view bytes, std::size_t at) noexcept {
  return number<std::uint64_t>(bytes, at);
}

}  // namespace kiv::storage::zip
