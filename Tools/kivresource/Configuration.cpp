#include "Tools/kivresource/Configuration.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

#include "KivResource/KivResource.h"

namespace tool {

namespace {

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

/// The path may name a pipe, which has no size.
std::optional<std::string> readFile(const std::string& path) {
  if (path == "-") return readToEnd(STDIN_FILENO);
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return std::nullopt;
  auto bytes = readToEnd(descriptor);
  const int failure = errno;
  close(descriptor);
  errno = failure;
  return bytes;
}

}  // namespace

std::optional<kiv::Value> readConfiguration(const std::string& path, std::string& objection) {
  const std::string name = path == "-" ? "standard input" : path;
  auto text = readFile(path);
  if (!text) {
    objection = name + ": " + std::error_code(errno, std::generic_category()).message();
    return std::nullopt;
  }
  auto config = kiv::JSON::read(*text);
  if (!config) {
    objection = name + ": " + config.error().localizedDescription();
    return std::nullopt;
  }
  if (!config->isDictionary()) {
    objection = name + ": a configuration is a JSON object, with an array \"items\"";
    return std::nullopt;
  }
  if (!config->dictionary()["items"].isArray()) {
    objection = name + ": the configuration has no array \"items\"";
    return std::nullopt;
  }
  return *std::move(config);
}

}  // namespace tool
