// The last copy, which may be destroyed on any thread, returns the shared buffer to its pool. So
// the callback belongs to the buffer and not to a Data object.

#include "KivPlatform/Foundation/values/Data.h"

#include <cerrno>
#include <utility>

#include "KivPlatform/Foundation/values/Result.h"

namespace kiv {

class Data::Memory {
 public:
  Memory(std::string bytes, std::function<void(std::string)> release)
      : bytes_(std::move(bytes)), release_(std::move(release)) {}
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  ~Memory() {
    if (release_) release_(std::move(bytes_));
  }
  [[nodiscard]] std::string_view view() const noexcept { return bytes_; }

 private:
  std::string bytes_;
  const std::function<void(std::string)> release_;
};

Data::Data(std::string bytes) : Data(std::move(bytes), nullptr) {}

Data::Data(std::string bytes, std::function<void(std::string)> release)
    : memory_(std::make_shared<Memory>(std::move(bytes), std::move(release))) {}

Data::Data(std::shared_ptr<DataFile> file) noexcept : file_(std::move(file)) {}

std::optional<std::string> Data::takeFile() const {
  return file_ ? file_->take() : std::nullopt;
}

std::string_view Data::view() const noexcept {
  if (file_) return file_->bytes();
  return memory_ ? memory_->view() : std::string_view();
}

bool Data::isFile() const noexcept {
  return file_ != nullptr;
}

Status Data::copyBytes(std::uint64_t offset, char* to, std::size_t count) const {
  if (file_) return file_->copyBytes(offset, to, count);
  const std::string_view bytes = view();
  if (offset > bytes.size() || count > bytes.size() - offset) {
    return systemError(EINVAL, "read", "the data");
  }
  bytes.copy(to, count, static_cast<std::size_t>(offset));
  return {};
}

}  // namespace kiv
