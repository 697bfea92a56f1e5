// Plain string operations instead of std::filesystem::path, because they also serve for the paths
// in URLs, and because parts of a path are returned as views without allocation.

#include "KivPlatform/Foundation/files/Path.h"

namespace kiv::path {

namespace {

/// The position of the "." before the last component's extension, or npos.
std::size_t extensionDot(std::string_view path) noexcept {
  const std::size_t dot = lastPathComponent(path).rfind('.');
  if (dot == std::string_view::npos) return dot;
  return path.size() - lastPathComponent(path).size() + dot;
}

}  // namespace

std::string_view lastPathComponent(std::string_view path) noexcept {
  const std::size_t separator = path.rfind('/');
  return separator == std::string_view::npos ? path : path.substr(separator + 1);
}

std::string_view deletingLastPathComponent(std::string_view path) noexcept {
  const std::size_t separator = path.rfind('/');
  if (separator == std::string_view::npos) return {};
  const std::size_t last = path.find_last_not_of('/', separator);
  return last == std::string_view::npos ? path.substr(0, 1) : path.substr(0, last + 1);
}

std::string_view pathExtension(std::string_view path) noexcept {
  const std::size_t dot = extensionDot(path);
  return dot == std::string_view::npos ? std::string_view() : path.substr(dot + 1);
}

std::string_view deletingPathExtension(std::string_view path) noexcept {
  return path.substr(0, extensionDot(path));
}

std::string appendingPathComponent(std::string_view path, std::string_view component) {
  const std::size_t start = component.find_first_not_of('/');
  component = start == std::string_view::npos ? std::string_view() : component.substr(start);
  if (path.empty()) return std::string(component);
  const std::size_t last = path.find_last_not_of('/');
  std::string joined(last == std::string_view::npos ? std::string_view()
                                                    : path.substr(0, last + 1));
  joined += '/';
  joined += component;
  return joined;
}

}  // namespace kiv::path
