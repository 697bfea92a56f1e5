#include "KivPlatform/Foundation/files/FileData.h"

#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/files/FileManager.h"

namespace kiv {

namespace {

class TakenFile final : public DataFile {
 public:
  TakenFile(std::unique_ptr<MappedFile> file, std::string path, std::shared_ptr<void> keeper)
      : file_(std::move(file)), path_(std::move(path)), keeper_(std::move(keeper)) {}
  TakenFile(const TakenFile&) = delete;
  TakenFile& operator=(const TakenFile&) = delete;
  ~TakenFile() override {
    if (path_) FileManager::defaultManager().discardItemAtPath(*path_);
  }

  [[nodiscard]] std::string_view bytes() const noexcept override { return file_->bytes(); }
  bool copyBytes(std::uint64_t offset, char* to, std::size_t count,
                 std::optional<Error>* error) const override {
    return file_->copyBytes(offset, to, count, error);
  }
  std::optional<std::string> take() override {
    const MutexLock lock(mutex_);
    keeper_.reset();
    return std::exchange(path_, std::nullopt);
  }

 private:
  const std::unique_ptr<MappedFile> file_;
  Mutex mutex_;
  std::optional<std::string> path_ KIV_GUARDED_BY(mutex_);  // while the file is this object's
  std::shared_ptr<void> keeper_ KIV_GUARDED_BY(mutex_);
};

}  // namespace

std::optional<Data> fileDataAtPath(std::string path, std::shared_ptr<void> keeper,
                                   std::optional<Error>* error) {
  auto file = FileManager::defaultManager().mapFileAtPath(path, error);
  if (!file) return std::nullopt;
  return Data(std::make_shared<TakenFile>(std::move(file), std::move(path), std::move(keeper)));
}

}  // namespace kiv
