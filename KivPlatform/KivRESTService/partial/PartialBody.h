#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivRESTService/partial/PartialRecord.h"

namespace kiv {

/// A body that is being written to a file of the spool directory, or was, in an earlier try or by
/// an earlier process.
///
/// Three files with one stem: STEM.part holds the bytes, STEM.json the record, and STEM.lock is
/// locked by the process that uses the other two; only that one may remove them. All have mode
/// 0600. When the object is destroyed, an unfinished body is kept if a later try can resume it, and
/// removed otherwise.
class PartialBody {
 public:
  /// The body of that stem, a path, locked for this object; nullptr where another uses it, or
  /// where nothing can be locked there. Nothing of it has been looked at.
  static std::unique_ptr<PartialBody> lock(const std::string& stem,
                                           std::optional<Error>* error = nullptr);
  PartialBody(const PartialBody&) = delete;
  PartialBody& operator=(const PartialBody&) = delete;
  ~PartialBody();

  /// What is known of the bytes kept; nothing where none are kept that could be gone on with.
  [[nodiscard]] const std::optional<PartialRecord>& record() const noexcept { return record_; }
  /// Reads the record. Without one that is of use, what is kept counts as nothing.
  void readRecord();
  /// Bytes kept, with those that wait.
  [[nodiscard]] std::int64_t length() const noexcept { return length_; }

  /// Begins the body anew; what was there is gone. The record is kept with it where it has a
  /// validator.
  bool begin(PartialRecord record, std::optional<Error>* error);
  /// Continues after the first `length` bytes, no more than are there. The record gets a new date
  /// when a byte is added.
  bool resume(std::int64_t length, std::optional<Error>* error);
  /// The bytes may wait in memory until flush(), or until the object goes.
  bool append(std::string_view bytes, std::optional<Error>* error);
  bool flush(std::optional<Error>* error);
  /// Notes in the record how the last request for the rest came out.
  void setRestFailed(bool failed);
  /// The body is whole: hands its file on. Nothing else may follow.
  static std::optional<Data> finish(std::unique_ptr<PartialBody> body, std::optional<Error>* error);
  /// Keeps nothing.
  void discard();

 private:
  PartialBody(const std::string& stem, std::unique_ptr<FileLock> lock);

  bool writeRecord(std::optional<Error>* error);
  bool write(std::string_view bytes, std::optional<Error>* error);
  void removeIfThere(const std::string& path);

  const std::string partPath_;
  const std::string recordPath_;
  const std::string lockPath_;
  std::unique_ptr<FileLock> lock_;
  std::optional<PartialRecord> record_;
  std::unique_ptr<WritableFile> file_;  // while it is being written
  std::string block_;                   // of it, what has not been written yet
  std::int64_t length_ = 0;
  bool isDateOld_ = false;  // nothing has been added since the date
  bool isHandedOn_ = false;
};

}  // namespace kiv
