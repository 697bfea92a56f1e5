// Names in messages come from servers and archives. They are escaped and shortened, so that they
// can neither forge log lines nor flood the log.

#include "KivPlatform/KivStorageService/store/StorageErrors.h"

#include "KivPlatform/Foundation/text/ControlCharacters.h"
#include "KivPlatform/Foundation/text/Unicode.h"

namespace kiv::storage {

namespace {

constexpr std::size_t longestQuote = 300;

std::string escaped(std::string_view text) {
  if (unicode::isUTF8(text)) return escapingControlCharacters(text);
  std::string out;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool isPlain = text[at] >= ' ' && text[at] <= '~';
    if (isPlain) {
      out += text[at];
    } else {
      appendEscaped(out, text.substr(at, 1));
    }
  }
  return out;
}

/// The last position not beyond `at` that does not split a UTF-8 sequence.
std::size_t boundary(std::string_view text, std::size_t at) {
  while (at > 0 && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80)
    --at;
  return at;
}

}  // namespace

Error storageError(KivStorageServiceErrorCode code, std::string_view message) {
  return Error(KivStorageServiceErrorDomain, static_cast<std::int64_t>(code), message);
}

Error noRootError() {
  return storageError(KivStorageServiceErrorCode::noRoot,
                      "There is no directory to store files in.");
}

std::string quoted(std::string_view text) {
  std::string shown = escaped(text);
  if (shown.size() > longestQuote) {
    const std::size_t head = boundary(shown, longestQuote / 2);
    const std::size_t tail = boundary(shown, shown.size() - longestQuote / 2);
    shown = shown.substr(0, head) + "..." + shown.substr(tail);
  }
  return '"' + shown + '"';
}

}  // namespace kiv::storage
