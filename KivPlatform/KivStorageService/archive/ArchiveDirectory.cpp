// Parses the central directory in addition to libzip, and more strictly. Attackers evade checks
// with archives that two parsers read differently, so anything ambiguous is rejected.

#include "KivPlatform/KivStorageService/archive/ArchiveDirectory.h"

#include <algorithm>
#include <cstddef>
#include <unordered_set>
#include <utility>

#include "KivPlatform/KivStorageService/store/StorageErrors.h"

namespace kiv::storage {

namespace {

// --- The format: all numbers are little-endian ---------------------------------------------------

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

/// The number at the position; zero if it would extend beyond the end.
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

std::uint16_t number16(std::string_view bytes, std::size_t at) noexcept {
  return number<std::uint16_t>(bytes, at);
}
std::uint32_t number32(std::string_view bytes, std::size_t at) noexcept {
  return number<std::uint32_t>(bytes, at);
}
std::uint64_t number64(std::string_view bytes, std::size_t at) noexcept {
  return number<std::uint64_t>(bytes, at);
}

// --- Finding and reading the central directory ---------------------------------------------------

constexpr std::string_view inconsistent = "contradicts itself about its list of entries";
constexpr std::string_view unreadable = "cannot be read from the disk";

/// Offset and size in bytes of the central directory, and its number of entries.
struct ListPlace {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  std::uint64_t count = 0;
};

/// Bytes of the archive; nothing if they cannot be read.
std::optional<std::string> bytesAt(const Data& data, std::uint64_t offset, std::uint64_t count) {
  std::string bytes(static_cast<std::size_t>(count), '\0');
  if (!data.copyBytes(offset, bytes.data(), bytes.size())) return std::nullopt;
  return bytes;
}

/// The last bytes of the archive, as many as the end record, its comment and the zip64 locator can
/// take.
struct Tail {
  std::uint64_t start = 0;  // in the archive
  std::string bytes;
};

std::optional<Tail> readTail(const Data& data) {
  constexpr std::uint64_t longest = endLocator64Size + endRecordSize + longestComment;
  const std::uint64_t length = std::min<std::uint64_t>(data.size(), longest);
  auto bytes = bytesAt(data, data.size() - length, length);
  if (!bytes) return std::nullopt;
  return Tail{data.size() - length, std::move(*bytes)};
}

/// The candidates for the end record: each has the signature and a comment that reaches exactly to
/// the end of the archive.
struct EndRecords {
  std::optional<std::size_t> last;
  bool hasAnother = false;
};

EndRecords findEndRecords(std::string_view bytes) {
  EndRecords found;
  if (bytes.size() < endRecordSize) return found;
  const std::size_t last = bytes.size() - endRecordSize;
  for (std::size_t at = last + 1; at-- > 0 && !found.hasAnother;) {
    if (number32(bytes, at) != endRecordSignature) continue;
    if (at + endRecordSize + number16(bytes, at + 20) != bytes.size()) continue;
    found.hasAnother = found.last.has_value();
    if (!found.last) found.last = at;
  }
  return found;
}

/// Reads the zip64 end record, which precedes its locator and the ordinary end record.
std::optional<ListPlace> readEndRecord64(const Data& data, std::uint64_t locatorAt,
                                         std::string_view locator) {
  const std::uint64_t at = number64(locator, 8);
  if (locatorAt < endRecord64Size || at > locatorAt - endRecord64Size) return std::nullopt;
  const std::string record = bytesAt(data, at, endRecord64Size).value_or(std::string());
  const bool reachesLocator = number64(record, 4) == locatorAt - at - 12;
  const bool isOneDisk = number32(record, 16) == 0 && number32(record, 20) == 0;
  if (number32(record, 0) != endRecord64Signature || !reachesLocator || !isOneDisk) {
    return std::nullopt;
  }
  ListPlace place{number64(record, 48), number64(record, 40), number64(record, 32)};
  if (number64(record, 24) != place.count) return std::nullopt;
  if (place.offset > at || place.size != at - place.offset) return std::nullopt;
  return place;
}

/// True if a field of the ordinary end record equals the zip64 one, or is saturated and so defers
/// to it.
bool agrees(std::uint64_t field, std::uint64_t saturated, std::uint64_t large) {
  return field == saturated || field == large;
}

std::optional<ListPlace> findList(const Data& data, const Tail& tail, std::size_t endAt) {
  const std::string_view bytes = tail.bytes;
  const ListPlace place{number32(bytes, endAt + 16), number32(bytes, endAt + 12),
                        number16(bytes, endAt + 10)};
  const bool hasLocator = endAt >= endLocator64Size &&
                          number32(bytes, endAt - endLocator64Size) == endLocator64Signature;
  if (hasLocator) {
    const std::size_t locatorAt = endAt - endLocator64Size;
    const auto large =
        readEndRecord64(data, tail.start + locatorAt, bytes.substr(locatorAt, endLocator64Size));
    const bool agree = large && agrees(place.offset, 0xFFFFFFFF, large->offset) &&
                       agrees(place.size, 0xFFFFFFFF, large->size) &&
                       agrees(place.count, 0xFFFF, large->count);
    return agree ? large : std::nullopt;
  }
  const bool isOneDisk = number16(bytes, endAt + 4) == 0 && number16(bytes, endAt + 6) == 0 &&
                         number16(bytes, endAt + 8) == place.count;
  const std::uint64_t end = tail.start + endAt;
  if (!isOneDisk || place.offset > end || place.size != end - place.offset) {
    return std::nullopt;
  }
  return place;
}

/// Replaces each saturated field (0xFFFFFFFF) by its value in the zip64 extra field, in the order
/// that the format defines. False if the extra field is malformed or too short.
bool widen(std::string_view extra, ArchiveEntry& entry) {
  std::uint64_t* const fields[] = {&entry.size, &entry.packedSize, &entry.headerOffset};
  std::string_view wide;
  for (std::string_view rest = extra; rest.size() >= 4;) {
    const std::size_t length = number16(rest, 2);
    if (length > rest.size() - 4) return false;
    if (number16(rest, 0) == zip64Extra) wide = rest.substr(4, length);
    rest.remove_prefix(4 + length);
  }
  for (std::uint64_t* const field : fields) {
    if (*field != 0xFFFFFFFF) continue;
    if (wide.size() < 8) return false;
    *field = number64(wide, 0);
    wide.remove_prefix(8);
  }
  return true;
}

/// Removes the first entry from the list and returns it; nothing if it is malformed or cut short.
std::optional<ArchiveEntry> takeEntry(std::string_view& list) {
  if (list.size() < centralHeaderSize || number32(list, 0) != centralHeaderSignature) {
    return std::nullopt;
  }
  const std::size_t nameSize = number16(list, 28);
  const std::size_t extraSize = number16(list, 30);
  const std::size_t whole = centralHeaderSize + nameSize + extraSize + number16(list, 32);
  if (whole > list.size()) return std::nullopt;
  ArchiveEntry entry;
  entry.rawName = list.substr(centralHeaderSize, nameSize);
  entry.flags = number16(list, 8);
  entry.method = number16(list, 10);
  entry.packedSize = number32(list, 20);
  entry.size = number32(list, 24);
  entry.headerOffset = number32(list, 42);
  entry.attributes = number32(list, 38);
  if (!widen(list.substr(centralHeaderSize + nameSize, extraSize), entry)) return std::nullopt;
  list.remove_prefix(whole);
  return entry;
}

/// The bytes of the central directory; an error if it exceeds a limit.
Result<std::string> readList(const Archive& archive, const ListPlace& place) {
  const std::uint64_t most = archive.limits.entries;
  if (place.count > most) {
    return archive.refusal("holds more than " + std::to_string(most) + " entries");
  }
  if (place.size > ArchiveDirectory::longestList) {
    return archive.refusal("has a list of entries of more than " +
                           std::to_string(ArchiveDirectory::longestList) + " bytes");
  }
  auto list = bytesAt(archive.data, place.offset, place.size);
  if (!list) return archive.refusal(unreadable);
  return *std::move(list);
}

Result<std::vector<ArchiveEntry>> takeEntries(const Archive& archive, std::string_view list,
                                              std::uint64_t count) {
  std::vector<ArchiveEntry> entries;
  entries.reserve(static_cast<std::size_t>(count));
  while (!list.empty()) {
    auto entry = takeEntry(list);
    if (!entry || entries.size() == count) return archive.refusal(inconsistent);
    entries.push_back(std::move(*entry));
  }
  if (entries.size() != count) return archive.refusal(inconsistent);
  return entries;
}

/// The bytes from an entry's local header to the end of its compressed data.
struct Range {
  std::uint64_t start;
  std::uint64_t end;
  const ArchiveEntry* entry;
};

/// Checks an entry's local header against the central directory.
Result<Range> rangeOf(const ArchiveEntry& entry, const Archive& archive, std::uint64_t listOffset) {
  const auto refuse = [&](std::string_view rule) { return archive.refusal(entry.rawName, rule); };
  const std::string_view outside = "does not lie within the archive";
  if (entry.headerOffset > listOffset) return refuse(outside);
  const std::uint64_t room = listOffset - entry.headerOffset;
  const std::uint64_t wanted = localHeaderSize + entry.rawName.size();
  const auto read = bytesAt(archive.data, entry.headerOffset, std::min(room, wanted));
  if (!read) return refuse(unreadable);
  const std::string_view header = *read;
  if (header.size() < localHeaderSize || number32(header, 0) != localHeaderSignature) {
    return refuse("has no header before its contents");
  }
  const std::uint64_t nameSize = number16(header, 26);
  const std::uint64_t before = localHeaderSize + nameSize + number16(header, 28);
  if (before > room || entry.packedSize > room - before) return refuse(outside);
  if (nameSize != entry.rawName.size() ||
      header.substr(localHeaderSize, static_cast<std::size_t>(nameSize)) != entry.rawName) {
    return refuse("has another name before its contents than in the list");
  }
  if ((number16(header, 6) & encryptedFlag) != 0) return refuse("is encrypted");
  return Range{entry.headerOffset, entry.headerOffset + before + entry.packedSize, &entry};
}

Status checkLayout(const std::vector<ArchiveEntry>& entries, const Archive& archive,
                   std::uint64_t listOffset) {
  std::vector<Range> ranges;
  ranges.reserve(entries.size());
  for (const ArchiveEntry& entry : entries) {
    const auto range = rangeOf(entry, archive, listOffset);
    if (!range) return range.error();
    ranges.push_back(*range);
  }
  std::sort(ranges.begin(), ranges.end(),
            [](const Range& a, const Range& b) { return a.start < b.start; });
  for (std::size_t i = 1; i < ranges.size(); ++i) {
    if (ranges[i].start < ranges[i - 1].end) {
      return archive.refusal(ranges[i].entry->rawName, "overlaps another entry");
    }
  }
  return {};
}

Status checkNames(const std::vector<ArchiveEntry>& entries, const Archive& archive) {
  std::unordered_set<std::string_view> names;
  for (const ArchiveEntry& entry : entries) {
    if (!names.insert(entry.rawName).second) {
      return archive.refusal(entry.rawName, "is listed twice");
    }
  }
  return {};
}

}  // namespace

Error Archive::refusal(std::string_view problem) const {
  return storageError(KivStorageServiceErrorCode::invalidArchive,
                      "The archive " + quoted(name) + " " + std::string(problem) + ".");
}

Error Archive::refusal(std::string_view entryName, std::string_view rule) const {
  return refusal("holds the entry " + quoted(entryName) + ", which " + std::string(rule));
}

bool ArchiveEntry::isEncrypted() const noexcept {
  return (flags & (encryptedFlag | strongEncryptionFlag | maskedHeadersFlag)) != 0;
}

bool ArchiveEntry::hasKnownMethod() const noexcept {
  return method == storedMethod || method == deflatedMethod;
}

bool ArchiveEntry::saysUTF8() const noexcept {
  return (flags & utf8Flag) != 0;
}

std::uint32_t ArchiveEntry::unixFileType() const noexcept {
  return (attributes >> 16) & 0170000;
}

Result<ArchiveDirectory> ArchiveDirectory::read(const Archive& archive) {
  const auto tail = readTail(archive.data);
  if (!tail) return archive.refusal(unreadable);
  const EndRecords endRecords = findEndRecords(tail->bytes);
  if (!endRecords.last) return archive.refusal("is no zip archive, or is cut short");
  if (endRecords.hasAnother) {
    return archive.refusal("has two end records, and with them two lists of entries");
  }
  const auto place = findList(archive.data, *tail, *endRecords.last);
  if (!place) return archive.refusal(inconsistent);
  const auto list = readList(archive, *place);
  if (!list) return list.error();
  auto entries = takeEntries(archive, *list, place->count);
  if (!entries) return entries.error();
  if (Status status = checkNames(*entries, archive); !status) return status;
  if (Status status = checkLayout(*entries, archive, place->offset); !status) return status;
  ArchiveDirectory directory;
  directory.entries_ = *std::move(entries);
  return directory;
}

}  // namespace kiv::storage
