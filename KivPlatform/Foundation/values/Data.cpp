#include "KivPlatform/Foundation/values/Data.h"

#include <cerrno>
#include <mutex>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"

namespace kiv {

class Data::Contents {
 public:
  Contents() = default;
  Contents(const Contents&) = delete;
  Contents& operator=(const Contents&) = delete;
  virtual ~Contents() = default;

  [[nodiscard]] virtual std::string_view view() const noexcept = 0;
  [[nodiscard]] virtual const MappedFile* file() const noexcept { return nullptr; }
  [[nodiscard]] virtual std::optional<std::string> takeFile() const { return std::nullopt; }
};

class Data::MemoryContents final : public Contents {
 public:
  MemoryContents(std::string bytes, std::function<void(std::string)> release)
      : bytes_(std::move(bytes)), release_(std::move(release)) {}
  MemoryContents(const MemoryContents&) = delete;
  MemoryContents& operator=(const MemoryContents&) = delete;
  ~MemoryContents() override {
    if (release_) release_(std::move(bytes_));
  }
  [[nodiscard]] std::string_view view() const noexcept override { return bytes_; }

 private:
  std::string bytes_;
  const std::function<void(std::string)> release_;
};

class Data::FileContents final : public Contents {
 public:
  FileContents(std::unique_ptr<MappedFile> file, std::string path, std::shared_ptr<void> keeper)
      : file_(std::move(file)), path_(std::move(path)), keeper_(std::move(keeper)) {}
  FileContents(const FileContents&) = delete;
  FileContents& operator=(const FileContents&) = delete;
  ~FileContents() override {
    if (path_) FileManager::defaultManager().removeItemAtPath(*path_);
  }

  [[nodiscard]] std::string_view view() const noexcept override { return file_->bytes(); }
  [[nodiscard]] const MappedFile* file() const noexcept override { return file_.get(); }

  [[nodiscard]] std::optional<std::string> takeFile() const override {
    const std::lock_guard lock(mutex_);
    keeper_.reset();
    return std::exchange(path_, std::nullopt);
  }

 private:
  const std::unique_ptr<MappedFile> file_;
  mutable std::mutex mutex_;
  mutable std::optional<std::string> path_;  // while the file is this object's
  mutable std::shared_ptr<void> keeper_;
};

Data::Data(std::string bytes) : Data(std::move(bytes), nullptr) {}

Data::Data(std::string bytes, std::function<void(std::string)> release)
    : contents_(std::make_shared<MemoryContents>(std::move(bytes), std::move(release))) {}

Data::Data(std::shared_ptr<const Contents> contents) noexcept : contents_(std::move(contents)) {}

std::optional<Data> Data::ofFileAtPath(std::string path, std::shared_ptr<void> keeper,
                                       std::optional<Error>* error) {
  auto file = FileManager::defaultManager().mapFileAtPath(path, error);
  if (!file) return std::nullopt;
  return Data(std::make_shared<FileContents>(std::move(file), std::move(path), std::move(keeper)));
}

std::optional<std::string> Data::takeFile() const {
  return contents_ ? contents_->takeFile() : std::nullopt;
}

std::string_view Data::view() const noexcept {
  return contents_ ? contents_->view() : std::string_view();
}

bool Data::isFile() const noexcept {
  return contents_ && contents_->file();
}

bool Data::copyBytes(std::uint64_t offset, char* to, std::size_t count,
                     std::optional<Error>* error) const {
  if (isFile()) return contents_->file()->copyBytes(offset, to, count, error);
  const std::string_view bytes = view();
  if (offset > bytes.size() || count > bytes.size() - offset) {
    return fail(error, systemError(EINVAL, "read", "the data"));
  }
  bytes.copy(to, count, static_cast<std::size_t>(offset));
  return true;
}

}  // namespace kiv
