#include "KivSession/ConfigurationFile.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "KivResource/KivResource.h"

namespace kiv::session {

namespace {

Error failure(int number, const std::string& name) {
  return {SystemErrorDomain, number,
          name + ": " + std::error_code(number, std::generic_category()).message()};
}

Error noConfiguration(const std::string& name, const std::string& reason) {
  return {SystemErrorDomain, EINVAL, name + ": " + reason};
}

/// Reads to the end of the file. Returns nullopt and sets errno on error.
std::optional<std::string> readToEnd(int descriptor) {
  std::string bytes;
  std::array<char, std::size_t{64} * 1024> piece{};
  while (true) {
    const ssize_t length = read(descriptor, piece.data(), piece.size());
    if (length == 0) return bytes;
    if (length > 0) {
      bytes.append(piece.data(), static_cast<std::size_t>(length));
    } else if (errno != EINTR) {
      return std::nullopt;
    }
  }
}

bool isRegularFile(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

enum class Kind { any, regular };

Result<Value> readFile(const std::string& path, Kind kind) {
  if (path.find('\0') != std::string::npos) return failure(EINVAL, path);
  // Opening a pipe would wait for its writer.
  const int flags = kind == Kind::regular ? O_NONBLOCK | O_NOCTTY : 0;
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | flags);
  if (descriptor < 0) return failure(errno, path);
  auto config = kind == Kind::any || isRegularFile(descriptor)
                    ? readConfiguration(descriptor, path)
                    : noConfiguration(path, "this is not a regular file");
  close(descriptor);
  return config;
}

}  // namespace

Result<Value> readConfigurationFile(const std::string& path) {
  return readFile(path, Kind::any);
}

Result<Value> readRegularConfigurationFile(const std::string& path) {
  return readFile(path, Kind::regular);
}

Result<Value> readConfiguration(int descriptor, const std::string& name) {
  auto text = readToEnd(descriptor);
  if (!text) return failure(errno, name);
  auto config = JSON::read(*std::move(text));
  if (!config) return noConfiguration(name, config.error().localizedDescription());
  if (!config->isDictionary()) {
    return noConfiguration(name, "a configuration is a JSON object, with an array \"items\"");
  }
  if (!config->dictionary()["items"].isArray()) {
    return noConfiguration(name, "the configuration has no array \"items\"");
  }
  return *std::move(config);
}

}  // namespace kiv::session
