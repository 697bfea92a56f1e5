#include "Tools/kivresource/HeadersFile.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "Tools/kivresource/Host.h"

namespace tool {

namespace {

using Headers = KivRESTServiceRequest::Headers;

/// More is refused by every request.
constexpr std::size_t mostBytes = std::size_t{1024} * 1024;

kiv::Error fileError(const std::string& path, const std::string& text) {
  return {kiv::SystemErrorDomain, EINVAL, path + ": " + text};
}

/// A pipe is read too, so the file may be the output of a program that knows a password.
kiv::Result<std::string> textOfFile(const std::string& path) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  std::string text(mostBytes + 1, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!file.eof() && !file) {
    const int number = errno != 0 ? errno : EIO;
    return fileError(path, std::generic_category().message(number));
  }
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (text.size() > mostBytes) return fileError(path, "too large for a file of headers");
  return text;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r";
  const auto start = text.find_first_not_of(blanks);
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(blanks) + 1 - start);
}

/// Whether a request may have these headers.
bool areValid(const Headers& headers) {
  const auto url = kiv::URL::fromString("http://localhost");
  const KivRESTServiceRequest tried(*url, 1, 0, [](const auto&, const auto&) {});
  return static_cast<bool>(tried.send(headers));
}

kiv::Result<Headers> readHeaders(const std::string& path) {
  const auto text = textOfFile(path);
  if (!text) return text.error();
  Headers headers;
  std::istringstream lines(*text);
  std::string read;
  for (std::size_t number = 1; std::getline(lines, read); ++number) {
    const std::string_view line = trimmed(read);
    if (line.empty() || line.starts_with('#')) continue;
    const auto colon = std::min(line.find(':'), line.size());
    KivRESTServiceHeader header{
        std::string(line.substr(0, colon)),
        std::string(trimmed(line.substr(std::min(colon + 1, line.size()))))};
    if (colon == line.size() || !areValid({header})) {
      return fileError(path, "line " + std::to_string(number) +
                                 " is not \"Name: value\", or no header that may be added");
    }
    headers.push_back(std::move(header));
  }
  if (!areValid(headers)) return fileError(path, "more than 32 headers, or more than 32 KiB");
  return headers;
}

}  // namespace

std::optional<HeadersFile> HeadersFile::read(const Options& options) {
  HeadersFile read;
  if (!options.headers) return read;
  auto headers = readHeaders(*options.headers);
  if (!headers) {
    complain(headers.error().localizedDescription());
    return std::nullopt;
  }
  read.headers_ = *std::move(headers);
  for (const auto& server : {options.mainURL, options.reserveURL, std::optional(options.url)}) {
    const auto url = kiv::URL::fromString(server.value_or(""));
    if (url && !url->host().empty()) read.origins_.push_back(url->origin());
  }
  return read;
}

void HeadersFile::addTo(KivRESTService& client) const {
  if (headers_.empty()) return;
  client.setRequestHandler([headers = headers_, origins = origins_](const auto& request) {
    const auto found = std::find(origins.begin(), origins.end(), request.url().origin());
    const kiv::Status sent = request.send(found != origins.end() ? headers : Headers());
    if (!sent) complain(sent.error().localizedDescription());
  });
}

}  // namespace tool
