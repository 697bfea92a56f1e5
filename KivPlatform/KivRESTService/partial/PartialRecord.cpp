// The record is read from a directory that other programs may write to, and its validators go into
// request headers. So each field is checked, and a record that is not valid is treated as missing.

#include "KivPlatform/KivRESTService/partial/PartialRecord.h"

#include "KivPlatform/Foundation/system/OperatingSystem.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/JSON.h"
#include "KivPlatform/Foundation/values/Value.h"
#include "KivPlatform/KivRESTService/http/HeaderFields.h"

namespace kiv {

namespace {

constexpr std::string_view urlKey = "urlDigest";
constexpr std::string_view finalURLKey = "finalURLDigest";
constexpr std::string_view entityTagKey = "entityTag";
constexpr std::string_view lastModifiedKey = "lastModified";
constexpr std::string_view lengthKey = "length";
constexpr std::string_view dateKey = "date";
constexpr std::string_view restFailedKey = "restFailed";
constexpr std::string_view bootKey = "boot";

/// A length or a date; nothing if it is missing or out of range.
std::optional<std::int64_t> number(const Value& value) {
  const std::uint64_t number = value.unsignedInteger();
  if (!value.isNumber() || number > INT64_MAX) return std::nullopt;
  return static_cast<std::int64_t>(number);
}

}  // namespace

std::string PartialRecord::text() const {
  return JSON::toCompactString(Dictionary{{urlKey, url.text()},
                                          {finalURLKey, finalURL.text()},
                                          {entityTagKey, version.entityTag},
                                          {lastModifiedKey, version.lastModified},
                                          {lengthKey, length},
                                          {dateKey, date},
                                          {restFailedKey, restFailed},
                                          {bootKey, system::bootID()}});
}

std::optional<PartialRecord> PartialRecord::fromText(std::string_view text) {
  const auto value = JSON::read(text);
  if (!value || !value->isDictionary()) return std::nullopt;
  const Dictionary& entries = value->dictionary();
  const auto url = URLDigest::fromText(entries[urlKey].stringView());
  const auto finalURL = URLDigest::fromText(entries[finalURLKey].stringView());
  if (!url || !finalURL) return std::nullopt;
  PartialRecord record;
  record.url = *url;
  record.finalURL = *finalURL;
  // These go into request headers, so the file must not be able to inject anything.
  const std::string_view tag = entries[entityTagKey].stringView();
  const std::string_view date = entries[lastModifiedKey].stringView();
  if (isStrongEntityTag(tag)) record.version.entityTag = tag;
  if (hasCharactersOfDate(date)) record.version.lastModified = date;
  record.length = number(entries[lengthKey]);
  record.date = number(entries[dateKey]).value_or(0);
  record.restFailed = entries[restFailedKey].boolean();
  const std::string_view boot = entries[bootKey].stringView();
  const bool isUsable =
      !record.version.validator().empty() && !boot.empty() && boot == system::bootID();
  if (!isUsable) return std::nullopt;
  return record;
}

}  // namespace kiv
