#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivRESTService/partial/PartialRecord.h"

namespace kiv {

/// A body in a file of the spool directory, being written or left by an earlier attempt or process.
///
/// Three files with one stem: STEM.part holds the bytes, STEM.json the record, and STEM.lock is
/// locked by the process that uses the other two; only that one may remove them. All have mode
/// 0600. When the object is destroyed, an unfinished body is kept if a later try can resume it, and
/// removed otherwise.
class PartialBody {
 public:
  /// Locks the body with that stem, a path. Fails if another object uses it. Nothing is read yet.
  static Result<std::unique_ptr<PartialBody>> lock(const std::string& stem);
  /// True for the name of a file that holds the bytes of a body.
  static bool isBodyName(std::string_view name) noexcept;

  PartialBody(const PartialBody&) = delete;
  PartialBody& operator=(const PartialBody&) = delete;
  ~PartialBody();

  /// The record of the kept part; nothing if there is none that can be resumed.
  [[nodiscard]] const std::optional<PartialRecord>& record() const noexcept { return record_; }
  /// Reads the record. Without a usable one nothing counts as kept.
  void readRecord();
  /// Bytes kept, buffered ones included.
  [[nodiscard]] std::int64_t length() const noexcept { return length_; }

  /// Begins a new body and discards the old one. The record is written if it has a validator.
  Status begin(PartialRecord record);
  /// Continues after the first `length` of the kept bytes. The record's date is renewed when a byte
  /// is added.
  Status resume(std::int64_t length);
  /// The bytes may be buffered until flush() or the destructor.
  Status append(std::string_view bytes);
  Status flush();
  /// Records whether the last range request failed.
  void setRestFailed(bool failed);
  /// Ends a complete body and returns its data. Nothing may be called afterwards.
  static Result<Data> finish(std::unique_ptr<PartialBody> body);
  /// Discards the body.
  void discard();

 private:
  PartialBody(const std::string& stem, std::unique_ptr<FileLock> lock);

  Status writeRecord();
  Status write(std::string_view bytes);
  void removeIfThere(const std::string& path);

  const std::string partPath_;
  const std::string recordPath_;
  const std::string lockPath_;
  std::unique_ptr<FileLock> lock_;
  std::optional<PartialRecord> record_;
  std::unique_ptr<WritableFile> file_;  // while writing
  std::string block_;                   // the buffer
  std::int64_t length_ = 0;
  bool isDateOld_ = false;  // no byte was added since
  bool isHandedOn_ = false;
};

}  // namespace kiv
