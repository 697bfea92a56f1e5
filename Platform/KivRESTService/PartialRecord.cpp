#include "Platform/KivRESTService/PartialRecord.h"

#include "Platform/Foundation/BootIdentity.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/JSON.h"
#include "Platform/Foundation/Value.h"
#include "Platform/KivRESTService/EntityTag.h"

namespace kiv {

namespace {

constexpr std::string_view urlKey = "url";
constexpr std::string_view finalURLKey = "finalURL";
constexpr std::string_view entityTagKey = "entityTag";
constexpr std::string_view lastModifiedKey = "lastModified";
constexpr std::string_view lengthKey = "length";
constexpr std::string_view dateKey = "date";
constexpr std::string_view restFailedKey = "restFailed";
constexpr std::string_view bootKey = "boot";

/// A length or a date; nothing where it is absent or beyond the range.
std::optional<std::int64_t> number(const Value& value) {
  const std::uint64_t number = value.unsignedInteger();
  if (!value.isNumber() || number > INT64_MAX) return std::nullopt;
  return static_cast<std::int64_t>(number);
}

}  // namespace

std::string PartialRecord::text() const {
  return JSON::describe(Dictionary{{urlKey, url},
                                   {finalURLKey, finalURL},
                                   {entityTagKey, version.entityTag},
                                   {lastModifiedKey, version.lastModified},
                                   {lengthKey, length},
                                   {dateKey, date},
                                   {restFailedKey, restFailed},
                                   {bootKey, bootIdentity()}});
}

std::optional<PartialRecord> PartialRecord::fromText(std::string_view text) {
  const auto value = JSON::read(Data(std::string(text)));
  if (!value || !value->isDictionary()) return std::nullopt;
  const Dictionary& entries = value->dictionary();
  PartialRecord record;
  record.url = entries[urlKey].string();
  record.finalURL = entries[finalURLKey].string();
  // Whatever lies in the file goes into a request.
  const std::string_view tag = entries[entityTagKey].stringView();
  const std::string_view date = entries[lastModifiedKey].stringView();
  if (isEntityTag(tag)) record.version.entityTag = tag;
  if (hasCharactersOfDate(date)) record.version.lastModified = date;
  record.length = number(entries[lengthKey]);
  record.date = number(entries[dateKey]).value_or(0);
  record.restFailed = entries[restFailedKey].boolean();
  const std::string_view boot = entries[bootKey].stringView();
  const bool isUsable = !record.url.empty() && !record.version.validator().empty() &&
                        !boot.empty() && boot == bootIdentity();
  if (!isUsable) return std::nullopt;
  return record;
}

}  // namespace kiv
