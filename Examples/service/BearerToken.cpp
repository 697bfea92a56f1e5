#include "BearerToken.h"

#include <algorithm>
#include <utility>

#include "ServiceLog.h"

namespace {

constexpr std::uint64_t longestToken = 8192;  // bytes, with the end of the line

/// The token in the text of the file, or an empty string if there is none.
std::string tokenIn(std::string_view text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
    text.remove_suffix(1);
  const bool isToken =
      std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7F; });
  return isToken ? std::string(text) : std::string();
}

/// The token, or why there is none.
kiv::Result<std::string> readToken(const std::string& path) {
  auto& files = kiv::FileManager::defaultManager();
  const auto identity = files.identityOfFileAtPath(path);  // follows links, as credentials may be
  if (!identity) return identity.error();
  const auto unusable = [&](const char* reason) {
    return kiv::Error(kiv::SystemErrorDomain, EINVAL, path + ": " + reason);
  };
  if (identity->length > longestToken) return unusable("this is too long for a token");
  const auto text = files.contentsAtPath(path);
  if (!text) return text.error();
  auto token = tokenIn(text->view());
  if (token.empty()) return unusable("this is no single line of visible characters");
  return token;
}

}  // namespace

BearerToken::BearerToken(std::string path, std::vector<std::string> origins)
    : path_(std::move(path)), origins_(std::move(origins)) {}

void BearerToken::answer(const KivRESTServiceRequest& request) {
  KivRESTServiceRequest::Headers headers;
  if (mayGoTo(request.url())) {
    readAgain();
    if (token_.empty()) return request.refuse();
    headers.push_back({"Authorization", "Bearer " + token_});
  }
  if (const auto status = request.send(std::move(headers)); !status)
    writeLog(LogLevel::error, status.error().localizedDescription());
}

bool BearerToken::mayGoTo(const kiv::URL& url) const {
  return !path_.empty() &&
         std::find(origins_.begin(), origins_.end(), url.origin()) != origins_.end();
}

void BearerToken::readAgain() {
  auto token = readToken(path_);
  if (!token) return note(token.error().localizedDescription());
  note("");
  if (*token == token_) return;
  writeLog(LogLevel::info, token_.empty() ? "the token was read" : "the token has changed");
  token_ = *std::move(token);
}

void BearerToken::note(const std::string& state) {
  if (state == state_) return;
  state_ = state;
  if (state.empty()) return writeLog(LogLevel::info, "the file of the token is usable again");
  writeLog(LogLevel::warning, "no new token: " + state);
}
