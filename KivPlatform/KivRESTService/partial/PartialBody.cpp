#include "KivPlatform/KivRESTService/partial/PartialBody.h"

#include <utility>

#include "KivPlatform/Foundation/files/FileData.h"
#include "KivPlatform/KivRESTService/http/HeaderFields.h"

namespace kiv {

namespace {

/// What is written at one time, at most. libcurl hands over 16 KiB at a time, which takes a fifth
/// longer to write piece by piece.
constexpr std::size_t blockSize = std::size_t{256} * 1024;

constexpr std::string_view bodySuffix = ".part";

FileManager& files() {
  return FileManager::defaultManager();
}

}  // namespace

PartialBody::PartialBody(const std::string& stem, std::unique_ptr<FileLock> lock)
    : partPath_(stem + std::string(bodySuffix)),
      recordPath_(stem + ".json"),
      lockPath_(stem + ".lock"),
      lock_(std::move(lock)) {}

std::unique_ptr<PartialBody> PartialBody::lock(const std::string& stem,
                                               std::optional<Error>* error) {
  auto lock = files().lockFileAtPath(stem + ".lock", error);
  if (!lock) return nullptr;
  return std::unique_ptr<PartialBody>(new PartialBody(stem, std::move(lock)));
}

bool PartialBody::isBodyName(std::string_view name) noexcept {
  return name.ends_with(bodySuffix);
}

PartialBody::~PartialBody() {
  flush(nullptr);
  file_.reset();
  const bool isKept = record_ && length_ > 0 && !isHandedOn_;
  if (!isKept) {
    removeIfThere(recordPath_);
    if (!isHandedOn_) removeIfThere(partPath_);
  }
  files().discardItemAtPath(lockPath_);
}

void PartialBody::removeIfThere(const std::string& path) {
  // Nothing but a regular file has been made here.
  if (files().lengthOfFileAtPath(path)) files().discardItemAtPath(path);
}

void PartialBody::readRecord() {
  const auto length = files().lengthOfFileAtPath(partPath_);
  const auto text = length ? files().contentsAtPath(recordPath_) : std::nullopt;
  record_ = text ? PartialRecord::fromText(text->view()) : std::nullopt;
  length_ = record_ ? static_cast<std::int64_t>(*length) : 0;
}

bool PartialBody::begin(PartialRecord record, std::optional<Error>* error) {
  discard();
  file_ = files().createPrivateFileAtPath(partPath_, error);
  if (!file_) return false;
  if (record.version.validator().empty()) return true;
  record_ = std::move(record);
  record_->date = secondsNow();
  return writeRecord(error);
}

/// Not synced, as the part itself is not: a record from before a power cut is not believed.
bool PartialBody::writeRecord(std::optional<Error>* error) {
  removeIfThere(recordPath_);
  const auto file = files().createPrivateFileAtPath(recordPath_, error);
  return file && file->write(record_->text(), error) && file->close(error);
}

bool PartialBody::resume(std::int64_t length, std::optional<Error>* error) {
  file_ = files().openFileAtPath_length(partPath_, static_cast<std::uint64_t>(length), error);
  length_ = length;
  isDateOld_ = true;
  return file_ != nullptr;
}

void PartialBody::setRestFailed(bool failed) {
  if (!record_) return;
  record_->restFailed = failed;
  writeRecord(nullptr);
}

/// A response that has only begun does not make the part any younger.
bool PartialBody::write(std::string_view bytes, std::optional<Error>* error) {
  if (std::exchange(isDateOld_, false)) {
    record_->date = secondsNow();
    if (!writeRecord(error)) return false;
  }
  return file_->write(bytes, error);
}

bool PartialBody::append(std::string_view bytes, std::optional<Error>* error) {
  if (block_.size() + bytes.size() > block_.capacity() && !flush(error)) return false;
  block_.reserve(blockSize);
  length_ += static_cast<std::int64_t>(bytes.size());
  if (bytes.size() > blockSize) return write(bytes, error);
  block_.append(bytes);
  return true;
}

bool PartialBody::flush(std::optional<Error>* error) {
  if (!file_ || block_.empty()) return true;
  const bool isWritten = write(block_, error);
  block_.clear();
  return isWritten;
}

std::optional<Data> PartialBody::finish(std::unique_ptr<PartialBody> body,
                                        std::optional<Error>* error) {
  if (!body->flush(error) || !std::exchange(body->file_, nullptr)->close(error)) {
    return std::nullopt;
  }
  body->block_ = {};
  const std::string path = body->partPath_;
  // The lock stays with the file until somebody has moved it away.
  const std::shared_ptr<PartialBody> keeper = std::move(body);
  auto data = fileDataAtPath(path, keeper, error);
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
