#include "KivResource/KivResourceVersion.h"

#include <string_view>

// The build passes the project's one version on to this file.
const double KivResourceVersionNumber = KIVRESOURCE_VERSION_NUMBER;
const char* const KivResourceVersionString = "KivResource " KIVRESOURCE_VERSION_TEXT;

#define KIVRESOURCE_TEXT(number) #number
#define KIVRESOURCE_TEXT_OF(major, minor, patch) \
  KIVRESOURCE_TEXT(major) "." KIVRESOURCE_TEXT(minor) "." KIVRESOURCE_TEXT(patch)
static_assert(std::string_view(KIVRESOURCE_VERSION_TEXT) ==
                  KIVRESOURCE_TEXT_OF(KIVRESOURCE_VERSION_MAJOR, KIVRESOURCE_VERSION_MINOR,
                                      KIVRESOURCE_VERSION_PATCH),
              "the header has another version than the project");

namespace kiv {
int version() noexcept {
  return KIVRESOURCE_VERSION;
}
}  // namespace kiv
