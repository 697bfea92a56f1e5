// Partial bodies are not synced, since losing one only costs a longer download. The record contains
// the boot ID, so that a body from before a system crash, which may have holes, is not resumed.
//
// The record is read from a directory that other programs may write to, and its validators go into
// request headers. So each field is checked, and an invalid record is treated as missing.

#include "KivPlatform/KivRESTService/partial/PartialBody.h"

#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/system/OperatingSystem.h"
#include "KivPlatform/Foundation/values/JSON.h"
#include "KivPlatform/Foundation/values/Value.h"
#include "KivPlatform/KivRESTService/http/HeaderFields.h"

namespace kiv {

namespace {

/// The size of one write, in bytes. libcurl delivers 16 KiB at a time; writing each piece
/// separately takes 20% longer.
constexpr std::size_t blockSize = std::size_t{256} * 1024;

constexpr std::string_view bodySuffix = ".part";
constexpr std::string_view recordSuffix = ".json";
constexpr std::string_view lockSuffix = ".lock";

constexpr std::string_view urlKey = "urlDigest";
constexpr std::string_view finalURLKey = "finalURLDigest";
constexpr std::string_view entityTagKey = "entityTag";
constexpr std::string_view lastModifiedKey = "lastModified";
constexpr std::string_view lengthKey = "length";
constexpr std::string_view dateKey = "date";
constexpr std::string_view rangeFailedKey = "restFailed";
constexpr std::string_view bootKey = "boot";

/// A length or a date; nothing if it is missing or out of range.
std::optional<std::int64_t> number(const Value& value) {
  const std::uint64_t number = value.unsignedInteger();
  if (!value.isNumber() || number > INT64_MAX) return std::nullopt;
  return static_cast<std::int64_t>(number);
}

std::string joined(const std::string& stem, std::string_view suffix) {
  return stem + std::string(suffix);
}

FileManager& files() {
  return FileManager::defaultManager();
}

}  // namespace

std::string PartialRecord::text() const {
  return JSON::toCompactString(Dictionary{{urlKey, url.text()},
                                          {finalURLKey, finalURL.text()},
                                          {entityTagKey, version.entityTag},
                                          {lastModifiedKey, version.lastModified},
                                          {lengthKey, length},
                                          {dateKey, date},
                                          {rangeFailedKey, rangeFailed},
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
  // These go into request headers, and the file must not be able to inject anything there.
  const std::string_view tag = entries[entityTagKey].stringView();
  const std::string_view date = entries[lastModifiedKey].stringView();
  if (isStrongEntityTag(tag)) record.version.entityTag = tag;
  if (hasCharactersOfDate(date)) record.version.lastModified = date;
  record.length = number(entries[lengthKey]);
  record.date = number(entries[dateKey]).value_or(0);
  record.rangeFailed = entries[rangeFailedKey].boolean();
  const std::string_view boot = entries[bootKey].stringView();
  const bool isUsable =
      !record.version.validator().empty() && !boot.empty() && boot == system::bootID();
  if (!isUsable) return std::nullopt;
  return record;
}

PartialBody::PartialBody(const std::string& stem, std::unique_ptr<FileLock> lock)
    : partPath_(joined(stem, bodySuffix)),
      recordPath_(joined(stem, recordSuffix)),
      lockPath_(joined(stem, lockSuffix)),
      lock_(std::move(lock)) {}

Result<std::unique_ptr<PartialBody>> PartialBody::lock(const std::string& stem) {
  auto lock = files().lockFileAtPath(joined(stem, lockSuffix));
  if (!lock) return lock.error();
  return std::unique_ptr<PartialBody>(new PartialBody(stem, *std::move(lock)));
}

bool PartialBody::isBodyName(std::string_view name) noexcept {
  return name.ends_with(bodySuffix);
}

std::string_view PartialBody::stemOfName(std::string_view name) noexcept {
  for (const std::string_view suffix : {bodySuffix, recordSuffix, lockSuffix}) {
    if (name.ends_with(suffix)) return name.substr(0, name.size() - suffix.size());
  }
  return {};
}

bool PartialBody::hasRecord(const std::string& stem) {
  return files().itemExistsAtPath(joined(stem, recordSuffix));
}

PartialBody::~PartialBody() {
  static_cast<void>(flush());  // bytes that cannot be written are lost
  file_.reset();
  const bool isKept = record_ && length_ > 0 && !isHandedOn_;
  if (!isKept) {
    removeIfThere(recordPath_);
    if (!isHandedOn_) removeIfThere(partPath_);
  }
  files().discardItemAtPath(lockPath_);
}

void PartialBody::removeIfThere(const std::string& path) {
  // Only regular files are created here, so anything else is not ours.
  if (files().lengthOfFileAtPath(path)) files().discardItemAtPath(path);
}

void PartialBody::readRecord() {
  const auto length = files().lengthOfFileAtPath(partPath_);
  record_.reset();
  if (length) {
    const auto text = files().contentsAtPath(recordPath_);
    if (text) record_ = PartialRecord::fromText(text->view());
  }
  length_ = record_ ? static_cast<std::int64_t>(*length) : 0;
}

Status PartialBody::begin(PartialRecord record) {
  discard();
  auto file = files().createPrivateFileAtPath(partPath_);
  if (!file) return file.error();
  file_ = *std::move(file);
  if (record.version.validator().empty()) return {};
  record_ = std::move(record);
  record_->date = secondsNow();
  return writeRecord();
}

/// Not synced, like the body: a record from before a reboot is rejected anyway.
Status PartialBody::writeRecord() {
  removeIfThere(recordPath_);
  const auto file = files().createPrivateFileAtPath(recordPath_);
  if (!file) return file.error();
  if (Status status = (*file)->write(record_->text()); !status) return status;
  return (*file)->close();
}

Status PartialBody::resume(std::int64_t length) {
  auto file = files().openFileAtPath_length(partPath_, static_cast<std::uint64_t>(length));
  length_ = length;
  isDateOld_ = true;
  file_ = nullptr;
  if (!file) return file.error();
  file_ = *std::move(file);
  return {};
}

void PartialBody::setRangeFailed(bool failed) {
  if (!record_) return;
  record_->rangeFailed = failed;
  static_cast<void>(writeRecord());  // on failure the next attempt repeats the same request
}

/// Renews the record's date with the first byte, not at the start of the response, which may have
/// no body.
Status PartialBody::write(std::string_view bytes) {
  if (std::exchange(isDateOld_, false)) {
    record_->date = secondsNow();
    if (Status status = writeRecord(); !status) return status;
  }
  return file_->write(bytes);
}

Status PartialBody::append(std::string_view bytes) {
  if (block_.size() + bytes.size() > block_.capacity()) {
    if (Status status = flush(); !status) return status;
  }
  block_.reserve(blockSize);
  length_ += static_cast<std::int64_t>(bytes.size());
  if (bytes.size() > blockSize) return write(bytes);
  block_.append(bytes);
  return {};
}

Status PartialBody::flush() {
  if (!file_ || block_.empty()) return {};
  Status status = write(block_);
  block_.clear();
  return status;
}

Result<Data> PartialBody::finish(std::unique_ptr<PartialBody> body) {
  if (Status status = body->flush(); !status) return status;
  const auto file = std::exchange(body->file_, nullptr);
  if (Status status = file->close(); !status) return status;
  body->block_ = {};
  const std::string path = body->partPath_;
  // Keeps the lock until the file is removed or passed on.
  const std::shared_ptr<PartialBody> keeper = std::move(body);
  auto data = fileDataAtPath(path, keeper);
  keeper->isHandedOn_ = data.has_value();
  if (!data) keeper->discard();
  return data;
}

void PartialBody::discard() {
  block_.clear();
  file_.reset();
  record_.reset();
  isDateOld_ = false;
  length_ = 0;
  removeIfThere(recordPath_);
  removeIfThere(partPath_);
}

}  // namespace kiv
