#include "Benchmarks/scale/Reference.h"

#include <stdexcept>
#include <string_view>
#include <sys/stat.h>

#include <simdjson.h>

namespace kiv::bench {

namespace {

namespace ondemand = simdjson::ondemand;

bool isFileKey(std::string_view key) {
  return key == "image_728x90" || key == "image" || key == "video_file_landscape" || key == "html";
}

std::size_t askForFile(std::string_view path) {
  struct stat status {};
  return ::stat(std::string(path).c_str(), &status) == 0 && S_ISREG(status.st_mode) ? 1 : 0;
}

std::size_t visit(ondemand::field field) {
  const std::string_view key = field.unescaped_key();
  ondemand::value value = field.value();
  if (value.type() == ondemand::json_type::string) {
    const std::string_view string = value.get_string();
    return isFileKey(key) ? askForFile(string) : 0;
  }
  const double number = value.get_double();
  return number < 0 ? throw std::runtime_error("The list holds a negative number.") : 0;
}

}  // namespace

std::size_t readParseAndAskForFiles(const std::string& listPath) {
  const simdjson::padded_string text = simdjson::padded_string::load(listPath);
  ondemand::parser parser;
  ondemand::document list = parser.iterate(text);
  std::size_t files = 0;
  for (ondemand::object item : list.get_array()) {
    for (ondemand::field field : item)
      files += visit(field);
  }
  return files;
}

}  // namespace kiv::bench
