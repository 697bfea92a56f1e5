#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivRESTService/http/ResponseCheck.h"
#include "KivPlatform/KivRESTService/partial/URLDigest.h"

namespace kiv {

class FileLock;
class WritableFile;

/// The metadata that is needed to resume a partial body.
struct PartialRecord {
  URLDigest url;                       ///< The URL of the request.
  URLDigest finalURL;                  ///< The URL after redirects.
  BodyVersion version;                 ///< Without a validator the body cannot be resumed.
  std::optional<std::int64_t> length;  ///< Bytes of the whole body, if known.
  std::int64_t date = 0;  ///< When an attempt last began to add to it; in seconds since 1970.
  /// The last range request failed, so the next request is for the whole file.
  bool rangeFailed = false;

  /// The contents of the record's file. They include the boot ID, because the body is not synced
  /// and may have holes after a system crash.
  [[nodiscard]] std::string text() const;
  /// Nothing if the text is not a valid record, has no validator, or has a different boot ID.
  static std::optional<PartialRecord> fromText(std::string_view text);
};

/// A body in the spool directory that is being written, or that an earlier attempt or process has
/// left.
///
/// It has three files with one stem: STEM.part contains the bytes, STEM.json the record, and this
/// object holds an advisory lock on STEM.lock. Only the holder of the lock may use or remove the
/// files. All have mode 0600. The destructor keeps an unfinished body if a later attempt can resume
/// it, and otherwise removes it. Not thread-safe.
class PartialBody {
 public:
  /// Locks the body with that stem, a path without suffix. Fails if another object holds the
  /// lock. Reads nothing yet.
  static Result<std::unique_ptr<PartialBody>> lock(const std::string& stem);
  /// True for the name of a file with the bytes of a body.
  static bool isBodyName(std::string_view name) noexcept;
  /// The stem of the name of one of the three files; empty for any other name.
  static std::string_view stemOfName(std::string_view name KIV_LIFETIME_BOUND) noexcept;
  /// True if there is a record at that stem, valid or not. Takes no lock.
  static bool hasRecord(const std::string& stem);

  PartialBody(const PartialBody&) = delete;
  PartialBody& operator=(const PartialBody&) = delete;
  ~PartialBody();

  /// The record; nothing if the body cannot be resumed.
  [[nodiscard]] const std::optional<PartialRecord>& record() const noexcept { return record_; }
  /// Reads the record. If there is no valid one, length() is zero.
  void readRecord();
  /// The number of bytes kept, including buffered ones.
  [[nodiscard]] std::int64_t length() const noexcept { return length_; }

  /// Discards the old body and begins a new one. The record is written only if it has a validator,
  /// since the body cannot be resumed otherwise.
  Status begin(PartialRecord record);
  /// Truncates the body to `length` bytes and continues after them. The record's date is renewed
  /// when the first bytes are written.
  Status resume(std::int64_t length);
  /// Appends the bytes, which may be buffered until flush() or the destructor.
  Status append(std::string_view bytes);
  Status flush();
  /// Records whether the last range request failed.
  void setRangeFailed(bool failed);
  /// Ends a complete body and returns its data, which owns the file and keeps the lock. On failure
  /// the destructor decides what is kept.
  static Result<Data> finish(std::unique_ptr<PartialBody> body);
  /// Removes the bytes and the record. The lock is kept.
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
  std::unique_ptr<WritableFile> file_;  // open while writing
  std::string block_;                   // buffered bytes
  std::int64_t length_ = 0;
  bool isDateOld_ = false;  // resumed, but nothing written yet
  bool isHandedOn_ = false;
};

}  // namespace kiv
