#include "Examples/demo/Content.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

namespace demo {

std::optional<std::string> readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

bool sameBytes(const std::string& path, const std::string& other) {
  const auto bytes = readFile(path);
  return bytes && bytes == readFile(other);
}

bool exists(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

kiv::Value readConfig(const std::string& path) {
  const auto text = readFile(path);
  if (!text) {
    std::cerr << path << ": cannot be read\n";
    return nullptr;
  }
  std::optional<kiv::Error> error;
  const auto config = kiv::JSON::read(kiv::Data(*text), &error);
  if (config) return *config;
  std::cerr << path << ": " << (error ? error->localizedDescription() : "") << '\n';
  return nullptr;
}

}  // namespace demo
